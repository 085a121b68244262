#pragma once

#include "zelvek/panel/functions.h"

namespace zelvek {

/// How much of what has happened is remembered.
struct Retention {
    int history_days = 400;
    int history_entries = 1000;  // of each job, the newest ones
    int notification_days = 400;
    int notification_entries = 100000;  // the newest ones
};

/// Frees the jobs of dead processes, takes back what they left, tells of certificates that come to their end,
/// and forgets a small part of what is older
/// than it is to be remembered: the rest is the next sweep's. Safe from any thread.
void Sweep(Services& services, const Retention& retention);

}  // namespace zelvek
