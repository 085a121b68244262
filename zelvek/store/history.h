#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zelvek/store/store.h"

/// What has happened to jobs, in the order of the write-backs. Every function works inside the caller's
/// transaction.
namespace zelvek::history {

struct Event {
    std::string time, state, event, detail;
};

void Add(Transaction& transaction, int job, const Event& event);

std::vector<Event> Of(Transaction& transaction, int job);

/// The newest event of the job whose state is "failed"; nothing where none is remembered.
std::optional<Event> LastFailure(Transaction& transaction, int job);

/// Keeps the job's newest `most` events.
void Shorten(Transaction& transaction, int job, int most);

/// Removes events that are older than `time`, the oldest ones, at most `limit`. Returns how many it has
/// removed.
long long RemoveOlder(Transaction& transaction, const std::string& time, int limit);

}  // namespace zelvek::history
