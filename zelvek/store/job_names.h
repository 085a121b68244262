#pragma once

#include <string>
#include <vector>

#include "zelvek/store/store.h"

/// Which jobs want a certificate for a domain name. Every function works inside the caller's transaction.
namespace zelvek::job_names {

/// The job's names from now on. `names` has blanks between them, in whatever form; one without an ASCII form
/// is nobody's.
void Set(Transaction& transaction, int job, const std::string& names);

/// The jobs that have just this name (canonical) among theirs, with ids above `after`, at most `limit`.
std::vector<int> JobsOf(Transaction& transaction, const std::string& name, int after, int limit);

/// A name (canonical) of a job.
struct Named {
    std::string name;
    int job = 0;
};

/// The names of this user's jobs that are `domain` (canonical) or lie below it, in some order, after that
/// name of that job, at most `limit`. The first ones for `after` without a name.
std::vector<Named> Below(Transaction& transaction, const std::string& domain, const std::string& user,
                         const Named& after, int limit);

/// Notes the names of an older version's jobs, where that has not been done yet.
void FillIn(Transaction& transaction);

}  // namespace zelvek::job_names
