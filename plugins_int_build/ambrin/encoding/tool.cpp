#include "encoding/tool.h"

#include "vek/err.h"

namespace {

/// A key dump that breaks off half-way holds the key's secret numbers, and an error's text ends up in logs.
std::string WithoutSecrets(const std::string& output) {
    return output.substr(0, output.find("privateExponent"));
}

}  // namespace

std::string RunFilter(const std::string& command, const std::string& input, const std::string& error_code) {
    vek_proc::Execute tool(command, kToolMode);
    tool.In() << input;
    tool.CloseIn();
    const int status = tool.Result();
    std::string output = tool.Str();
    if (status != 0) throw vek_err::Error("ambrin", error_code, WithoutSecrets(output));
    return output;
}
