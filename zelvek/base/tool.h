#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace zelvek {

/// How a command ended.
struct ToolRun {
    int status;          // as the shell gives it; 127 also for what cannot be started
    bool timed_out;      // it was ended because its time was up
    std::string output;  // standard output and standard error together, the last 64 KiB
};

/// Runs a command, of one line or more, by /bin/sh and waits for it. It has no terminal. When it takes longer
/// than `limit` it is ended, with all that it started in its session.
ToolRun RunTool(const std::string& command, const std::string& input, std::chrono::seconds limit);

/// Runs a program without a shell, likewise, and with no input. Its environment is a PATH of the system's
/// folders and LANG, nothing else. The status is 127 also for a program that cannot be started, and the
/// output says why.
ToolRun RunProgram(const std::string& path, const std::vector<std::string>& arguments,
                   std::chrono::seconds limit);

}  // namespace zelvek
