#pragma once

#include <chrono>
#include <string>

#include "zelvek/base/job.h"
#include "zelvek/jobs/outcome.h"
#include "zelvek/store/store.h"

/// What becomes of a job when a run of it is over, and when the clock was wrong.
///
/// Times are what somebody's clock has said, or a damaged row holds. A time in the future that cannot lie
/// there counts as now, and so does one that cannot be read; whatever a job's times are, other jobs are not
/// held up.
namespace zelvek {

/// When jobs are run again.
struct RetryPolicy {
    std::chrono::seconds retry{60};  // after a run that has asked for no time; longer after failures
};

/// How long a job waits after its `failures`-th failed run in a row: 1, 10, 100 minutes, then a day where the
/// authority has refused it; sooner where an exchange failed; an hour and longer where the authority asks for
/// patience; a day where a person has to mend something, or where a certificate may have been issued that
/// nobody has. A day is somewhat less, by a number from 0 to 1, so that not all jobs come at one time. For
/// `policy.retry` other than a minute all is longer or shorter in proportion.
std::chrono::seconds PauseAfter(Outcome outcome, int failures, const RetryPolicy& policy, double spread);

/// Counts the run's outcome and says when the next one is due, where the run has not asked for a time itself.
/// After a failure the job is looked at for a notification, unless a time for that is set already.
/// A stopped job waits a day.
void PlanNextRun(Job& job, Outcome outcome, const RetryPolicy& policy, const std::string& now);

/// The longest pause that a run can ask for: a job is stopped when its day is over.
constexpr std::chrono::hours kLongestPause{24};

/// When the job's next run is due: at the time that its last run has asked for, else some time after that
/// run's end; a new job's at once. `now` is a date and time.
std::string NextDue(const Job& job, const RetryPolicy& policy, const std::string& now);

/// Replaces what a plug-in could not read: a pause is forgotten, other times become `now`. Says whether there
/// was anything of that kind; it is logged then.
bool MakeTimesReadable(Job& job, const std::string& now);

/// Finds the waiting and stopped jobs that would wait too long, since the clock was set back or their times
/// cannot be read, gives them times that can be and logs that, once for each. At most so many jobs at once
/// that nobody waits long for the store; the next call goes on.
void MendTimes(Transaction& transaction, const std::string& now, const RetryPolicy& policy);

/// Frees a job whose run has ended at `now` without writing it back. The job is one of jobs::Running.
void FreeJob(Transaction& transaction, Job job, const std::string& now, const RetryPolicy& policy);

/// Frees the jobs whose holders are dead.
void FreeJobsOfTheDead(Transaction& transaction, const std::string& now, const RetryPolicy& policy);

}  // namespace zelvek
