#include "zelvek/jobs/next_run.h"

#include "vek/date.h"
#include "zelvek/base/log.h"
#include "zelvek/store/jobs.h"

namespace zelvek {

std::string NextDue(const Job& job, const RetryPolicy& policy) {
    // Date-times of this form compare as texts.
    if (job.next_attempt > job.last_run) return job.next_attempt;
    if (job.last_run.empty()) return job.time_started;
    return vek_date::DateTime(job.last_run).AddSeconds(static_cast<int>(policy.retry.count())).AsDateTime();
}

void FreeJob(Transaction& transaction, Job job, const std::string& now, const RetryPolicy& policy) {
    job.last_run = now;
    jobs::Free(transaction, job.id, now, NextDue(job, policy));
}

void FreeJobsOfTheDead(Transaction& transaction, const std::string& now, const RetryPolicy& policy) {
    for (const Job& job : jobs::Running(transaction)) {
        if (Alive(job.holder)) continue;
        Log("job " + std::to_string(job.id) + ": its run has ended without writing the job back");
        FreeJob(transaction, job, now, policy);
    }
}

}  // namespace zelvek
