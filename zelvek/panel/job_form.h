#pragma once

#include <map>
#include <string>
#include <vector>

#include "zelvek/base/job.h"
#include "zelvek/panel/functions.h"

/// What people ask for when they add or edit a job.
namespace zelvek {

/// The job that a query's parameters describe, due at once; without an authority where they name none.
/// Errors: Error of code kValue for what no certificate could be made or installed with.
Job NewJob(const Query& query);

/// What `NewJob` would make this job of, in query form.
std::map<std::string, std::string> FormOf(const Job& job);

/// A user gets certificates for names in their own domains alone: the authority proves only that this machine
/// serves a name, which it does for every user. Errors: Error of code kMissed.
void CheckOwner(Transaction& transaction, const std::string& user, const std::vector<std::string>& names);

/// Whether the query says that names may lie anywhere: the administrator may know better, of a name whose DNS
/// lies elsewhere, say.
bool TakesForeignNames(const Query& query);

/// Of two jobs with one certificate the second would replace what the first has installed, and each would
/// take the other's work for its own. Errors: Error of code kExists.
void CheckCertificateIsNew(Transaction& transaction, const Job& job);

}  // namespace zelvek
