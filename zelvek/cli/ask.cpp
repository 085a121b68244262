#include "zelvek/cli/ask.h"

#include "vek/err.h"
#include "zelvek/base/error.h"
#include "zelvek/base/run_directory.h"
#include "zelvek/base/service_user.h"

namespace zelvek::cli {

vek_client::Result Ask(const std::string& function, const std::map<std::string, std::string>& parameters) {
    BecomeServiceUser(RunDirectory());
    try {
        return vek_client::Local("zelvek", "cli").Query("func=" + function, parameters);
    } catch (const vek_err::Error& error) {
        if (error.type() != "connect") throw Error(CodeOf(error.type()), error.what());
        throw Error(Code::kIo, std::string("cannot reach the service: ") + error.what());
    }
}

}  // namespace zelvek::cli
