#include "zelvek/cli/ask.h"

#include <unistd.h>

#include <cerrno>

#include "vek/err.h"
#include "zelvek/base/error.h"
#include "zelvek/base/run_directory.h"
#include "zelvek/base/service_user.h"

namespace zelvek::cli {

namespace {

/// Why nobody was reached. Whom the directory or the socket keeps out waits for nobody to start a service.
Error Unreached(const std::string& reason) {
    const std::string sentence = "cannot reach the service: " + reason;
    if (::euidaccess((RunDirectory() / "zelvek.sock").c_str(), W_OK) == 0 || errno != EACCES)
        return {Code::kIo, sentence};
    return {Code::kDenied,
            sentence +
                "; this needs root, the service's user, or a member of one of the service's groups, usually "
                "zelvek-admin and zelvek-read"};
}

}  // namespace

vek_client::Result Ask(const std::string& function, const std::map<std::string, std::string>& parameters) {
    const auto directory = RunDirectory();
    BecomeServiceUser(directory);
    try {
        return vek_client::Local("zelvek", "cli", ServiceUserOf(directory))
            .Query("func=" + function, parameters);
    } catch (const vek_err::Error& error) {
        if (error.type() != "connect") throw Error(CodeOf(error.type()), error.what());
        throw Unreached(error.what());
    }
}

}  // namespace zelvek::cli
