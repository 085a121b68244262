#include "zelvek/base/tool.h"

#include <csignal>

#include "vek/err.h"
#include "vek/proc.h"
#include "zelvek/base/exit_status.h"

namespace zelvek {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostOutput = 64UL << 10;

ToolRun Finish(vek_proc::Execute& tool, Clock::time_point start, std::chrono::seconds limit) {
    tool.LimitTime(limit);
    tool.KeepLast(kMostOutput);
    const int status = tool.Result();
    const bool late = Clock::now() - start >= limit;
    return {status, late && status == StatusOfSignal(SIGKILL), tool.Str()};
}

}  // namespace

ToolRun RunTool(const std::string& command, const std::string& input, std::chrono::seconds limit) try {
    const auto start = Clock::now();
    // On a line of its own it counts for every command of a list or a pipeline, and for what the shell itself
    // complains of.
    vek_proc::Execute tool("exec 2>&1\n" + command,
                           vek_proc::kPipeIn | vek_proc::kPipeOut | vek_proc::kOwnSession);
    tool.In() << input;
    return Finish(tool, start, limit);
} catch (const vek_err::Error& error) {
    return {127, false, error.what()};
}

ToolRun RunProgram(const std::string& path, const std::vector<std::string>& arguments,
                   std::chrono::seconds limit) try {
    const auto start = Clock::now();
    const vek_proc::Program program{
        path,
        arguments,
        {"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "LANG=C.UTF-8"}};
    vek_proc::Execute tool(program, vek_proc::kPipeOut | vek_proc::kOwnSession);
    return Finish(tool, start, limit);
} catch (const vek_err::Error& error) {
    return {127, false, error.what()};
}

}  // namespace zelvek
