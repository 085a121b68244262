#pragma once

#include <string>
#include <utility>
#include <vector>

#include "zelvek/store/store.h"

/// Notifications for people. Every function works inside the caller's transaction.
namespace zelvek::problems {

struct Problem {
    std::string id, name, level, owner, time;
    std::vector<std::pair<std::string, std::string>> parameters;
    long long number = 0;  // given by the store, in the order in which they came
};

/// A repeated id changes nothing: the notification is there already.
void Add(Transaction& transaction, const Problem& problem);

/// The notification is not true any more. One that is not there is no error.
void Remove(Transaction& transaction, const std::string& id);

/// Those with numbers above `after`, at most `limit`, by number.
std::vector<Problem> List(Transaction& transaction, long long after, int limit);

/// Removes those that are older than `time`, the oldest first, then those beyond the newest `most`; at most
/// `limit` altogether. Returns how many it has removed.
long long RemoveOlder(Transaction& transaction, const std::string& time, long long most, int limit);

}  // namespace zelvek::problems
