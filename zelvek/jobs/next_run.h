#pragma once

#include <chrono>
#include <string>

#include "zelvek/base/job.h"
#include "zelvek/store/store.h"

/// What becomes of a job when a run of it is over.
namespace zelvek {

/// When jobs are run again.
struct RetryPolicy {
    std::chrono::seconds retry{60};  // after the end of a run that has asked for no time
};

/// When the job's next run is due: at the time that its last run has asked for, else some time after that
/// run's end; a new job's at once.
std::string NextDue(const Job& job, const RetryPolicy& policy);

/// Frees a job whose run has ended at `now` without writing it back. The job is one of jobs::Running.
void FreeJob(Transaction& transaction, Job job, const std::string& now, const RetryPolicy& policy);

/// Frees the jobs whose holders are dead.
void FreeJobsOfTheDead(Transaction& transaction, const std::string& now, const RetryPolicy& policy);

}  // namespace zelvek
