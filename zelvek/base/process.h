#pragma once

#include <sys/types.h>

#include <optional>

namespace zelvek {

/// One process of this machine for good: process ids are used again, the pair of id and start time is not.
struct Process {
    pid_t pid = 0;
    long long start = 0;  // clock ticks since boot

    bool operator==(const Process&) const = default;
};

/// The living process of that id; nothing when there is none (one that has ended but was not reaped is none).
std::optional<Process> FindProcess(pid_t pid);

bool Alive(const Process& process);

}  // namespace zelvek
