#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zelvek/base/job.h"
#include "zelvek/store/history.h"
#include "zelvek/store/store.h"

/// What an authority allows, counted here before it refuses.
namespace zelvek {

/// Somewhat below what the default authority allows: five failed authorizations of one name within an hour,
/// 300 orders of one account within three hours.
struct Limits {
    int failures = 4;
    int orders = 250;
};

/// Why a job has to wait, and until when.
struct Hold {
    std::string until;   // date and time
    std::string reason;  // what people read
};

/// Whether a run of the job could exceed a limit.
std::optional<Hold> HeldBack(Transaction& transaction, const Job& job, const Limits& limits,
                             const std::string& now);

/// How many orders the authority's default account has placed within three hours, counted up to `most`.
int OrdersOf(Transaction& transaction, const std::string& authority, const std::string& now, int most);

/// A run of the job begins: until its end is known, it counts as one that orders and fails.
void NoteRun(Transaction& transaction, const Job& job, const std::string& now);

/// The run has ended with these events.
void NoteEnd(Transaction& transaction, const Job& job, const std::vector<history::Event>& events,
             const std::string& now);

/// The run has died. What it may have ordered counts; that just then a name has failed is unlikely.
void NoteDeath(Transaction& transaction, int job);

/// Forgets a few uses that no limit needs any more.
void ForgetOldUse(Transaction& transaction, const std::string& now);

}  // namespace zelvek
