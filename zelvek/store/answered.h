#pragma once

#include <optional>
#include <string>

#include "zelvek/store/store.h"

/// Queries that have been carried out, with their answers, by the identity that the caller gave them: one
/// that comes again, because its answer was lost, is answered alike and changes nothing. Every function works
/// inside the caller's transaction, which is the one that made the change.
namespace zelvek::answered {

/// Errors: Error for an identity that stands there already.
void Put(Transaction& transaction, const std::string& identity, const std::string& answer,
         const std::string& time);

/// The answer that was given; nothing for a query that has not been carried out.
std::optional<std::string> Find(Transaction& transaction, const std::string& identity);

/// Forgets what was answered before `time`, the oldest first, at most `limit`. Returns how many it has
/// forgotten.
long long RemoveOlder(Transaction& transaction, const std::string& time, int limit);

}  // namespace zelvek::answered
