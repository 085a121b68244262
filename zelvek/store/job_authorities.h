#pragma once

#include <map>
#include <string>

#include "zelvek/store/store.h"

/// Which authorities jobs have. Every function works inside the caller's transaction.
namespace zelvek::job_authorities {

/// The name of the one that new jobs get where nobody says which.
std::string Default(Transaction& transaction);

void SetDefault(Transaction& transaction, const std::string& name);

/// How many jobs each authority has that some job has, or has had.
std::map<std::string, long long> Counts(Transaction& transaction);

}  // namespace zelvek::job_authorities
