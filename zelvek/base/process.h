#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>

namespace zelvek {

/// Names one process of this machine for ever: the system gives its id to a later process, but never together
/// with its start time.
struct Process {
    pid_t pid = 0;
    long long start = 0;  // clock ticks since boot

    bool operator==(const Process&) const = default;
};

/// The process of that id; nothing when there is none, or when it has ended and is not waited for yet.
std::optional<Process> FindProcess(pid_t pid);

/// Whether just this process still runs.
bool Alive(const Process& process);

/// How long ago the process was started, whether or not it still runs.
std::chrono::milliseconds AgeOf(const Process& process);

}  // namespace zelvek
