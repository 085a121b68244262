#pragma once

#include <chrono>

#include "zelvek/panel/functions.h"

namespace zelvek {

/// How long what has happened is remembered.
struct Retention {
    std::chrono::hours history{24 * 400};        // a job's events
    std::chrono::hours notifications{24 * 400};  //
    long long most_notifications = 100000;       // the newest ones
};

/// Frees the jobs of dead processes, takes back what they left, and forgets a small part of what is older
/// than it is to be remembered: the rest is the next sweep's. Safe from any thread.
void Sweep(Services& services, const Retention& retention);

}  // namespace zelvek
