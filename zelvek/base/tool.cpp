#include "zelvek/base/tool.h"

#include <csignal>

#include "vek/err.h"
#include "vek/proc.h"
#include "zelvek/base/exit_status.h"

namespace zelvek {

namespace {

constexpr std::size_t kMostOutput = 64UL << 10;

}  // namespace

ToolRun RunTool(const std::string& command, const std::string& input, std::chrono::seconds limit) try {
    const auto start = std::chrono::steady_clock::now();
    // On a line of its own it counts for every command of a list or a pipeline, and for what the shell itself
    // complains of.
    vek_proc::Execute tool("exec 2>&1\n" + command,
                           vek_proc::kPipeIn | vek_proc::kPipeOut | vek_proc::kOwnSession);
    tool.LimitTime(limit);
    tool.KeepLast(kMostOutput);
    tool.In() << input;
    const int status = tool.Result();
    const bool late = std::chrono::steady_clock::now() - start >= limit;
    return {status, late && status == StatusOfSignal(SIGKILL), tool.Str()};
} catch (const vek_err::Error& error) {
    return {127, false, error.what()};
}

}  // namespace zelvek
