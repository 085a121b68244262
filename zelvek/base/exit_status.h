#pragma once

#include <sys/wait.h>

namespace zelvek {

/// The exit status of a process that a signal has ended, as shells count it.
constexpr int StatusOfSignal(int signal) { return 128 + signal; }

/// The exit status in what waitpid(2) tells of an ended process.
inline int ExitStatus(int waited) {
    return WIFSIGNALED(waited) ? StatusOfSignal(WTERMSIG(waited)) : WEXITSTATUS(waited);
}

}  // namespace zelvek
