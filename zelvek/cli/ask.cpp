#include "vek/err.h"
#include "zelvek/base/run_directory.h"
#include "zelvek/cli/cli.h"

namespace zelvek::cli {

vek_client::Result Ask(const std::string& function, const std::map<std::string, std::string>& parameters) {
    try {
        return vek_client::Local("zelvek", "cli").Query("func=" + function, parameters);
    } catch (const vek_err::Error& error) {
        if (error.type() != "connect") throw;
        const std::string what = error.what();
        throw vek_err::Error::Reported("connect", "cannot reach the service at " +
                                                      (RunDirectory() / "zelvek.sock").string() + ": " +
                                                      what.substr(what.rfind(": ") + 2));
    }
}

}  // namespace zelvek::cli
