#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zelvek/store/store.h"

/// Who has been let in to the service's page, and who is about to be by a link. Of what a browser shows for
/// that only a hash is kept. Every function works inside the caller's transaction; times are date-times.
namespace zelvek::page_sessions {

enum class Kind { kSession, kLink };

struct Session {
    long long number = 0;  // given by `Add`
    Kind kind = Kind::kSession;
    std::string hash = {};
    std::string user_name = {};  // whose jobs it is for; empty: everybody's
    std::string began = {};
    std::string seen = {};   // when somebody last did something in it
    std::string agent = {};  // what the browser calls itself
};

/// Stores it and returns its number.
long long Add(Transaction& transaction, const Session& session);

std::optional<Session> Find(Transaction& transaction, Kind kind, long long number);

/// Those with numbers above `after`, at most `limit`.
std::vector<Session> List(Transaction& transaction, Kind kind, long long after, int limit);

void SetSeen(Transaction& transaction, long long number, const std::string& time);

/// Says whether there was one.
bool Remove(Transaction& transaction, Kind kind, long long number);

/// Removes all of the kind, and returns how many there were.
long long RemoveAll(Transaction& transaction, Kind kind);

/// Removes those of the kind that began before one time, or were last seen before another.
void RemoveOlder(Transaction& transaction, Kind kind, const std::string& began, const std::string& seen);

}  // namespace zelvek::page_sessions
