#include "zelvek/jobs/next_run.h"

#include <algorithm>
#include <map>
#include <optional>
#include <vector>

#include "vek/date.h"
#include "vek/err.h"
#include "zelvek/base/log.h"
#include "zelvek/jobs/limits.h"
#include "zelvek/jobs/renewal.h"
#include "zelvek/jobs/run_end.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/runs.h"

namespace zelvek {

namespace {

using std::chrono::seconds;
using vek_date::DateTime;

constexpr int kMendedAtOnce = 500;

/// Nothing for what is no date and time.
std::optional<DateTime> Read(const std::string& text) {
    try {
        return DateTime(text);
    } catch (const vek_err::Error&) {
        return std::nullopt;
    }
}

DateTime After(DateTime moment, seconds pause) { return moment.AddSeconds(static_cast<int>(pause.count())); }

/// How long after its last run the job's next one was asked for; nothing where none was.
seconds PauseOf(const Job& job, const DateTime& now) {
    const auto next = Read(job.next_attempt);
    if (!next) return seconds{0};
    const seconds pause{next->SecondsSince(Read(job.last_run).value_or(now))};
    return std::clamp<seconds>(pause, seconds{0}, kLongestPause);
}

/// A stopped job has had its day.
seconds PauseOfStopped(const RetryPolicy& policy) {
    constexpr int kMany = 100;  // failures
    return std::min<seconds>(PauseAfter(Outcome::kRefused, kMany, policy, RandomSpread()), kLongestPause);
}

void LogTimes(const Job& job, const std::string& what) {
    Log("job " + std::to_string(job.id) + ": " + what + ": started \"" + job.time_started +
        "\", last run \"" + job.last_run + "\", next attempt \"" + job.next_attempt + "\", due \"" + job.due +
        "\"");
}

}  // namespace

std::string NextDue(const Job& job, const RetryPolicy& policy, const std::string& now_text) {
    const DateTime now(now_text);
    const DateTime ended = std::min(Read(job.last_run).value_or(now), now);
    const seconds pause = PauseOf(job, now);
    if (pause > seconds{0}) return After(ended, pause).AsDateTime();
    if (job.last_run.empty()) return std::min(Read(job.time_started).value_or(now), now).AsDateTime();
    return After(ended, policy.retry).AsDateTime();
}

seconds PauseAfter(Outcome outcome, int failures, const RetryPolicy& policy, double spread) {
    using Minutes = std::vector<int>;
    constexpr int kDay = 24 * 60;
    static const std::map<Outcome, Minutes> pauses{{Outcome::kOnItsWay, {1}},
                                                   {Outcome::kUnreached, {1, 2, 5, 15, 30, 60}},
                                                   {Outcome::kLimited, {60, 180, 360, kDay}},
                                                   {Outcome::kRefused, {1, 10, 100, kDay}},
                                                   {Outcome::kForPeople, {10, kDay}},
                                                   {Outcome::kUnfetched, {kDay}},
                                                   {Outcome::kCutShort, {1, kDay}}};
    const Minutes& minutes = pauses.at(outcome);
    const auto step = static_cast<std::size_t>(std::max(failures, 1) - 1);
    const int pause = minutes[std::min(step, minutes.size() - 1)];
    if (pause < kDay) return policy.retry * pause;
    return std::chrono::ceil<seconds>(policy.retry * pause * (1 - spread / 6));
}

void PlanNextRun(Job& job, Outcome outcome, const RetryPolicy& policy, const std::string& now) {
    const bool failed = outcome != Outcome::kOnItsWay || job.failed;
    constexpr int kMost = 1000;
    job.failures = failed && !job.verified ? std::min(job.failures + 1, kMost) : 0;
    if (job.failures > 0 && job.notice_due.empty()) job.notice_due = now;
    job.due = NextDue(job, policy, now);
    if (!failed || job.next_attempt > now) return;
    const seconds pause =
        job.failed
            ? PauseOfStopped(policy)
            : std::min<seconds>(PauseAfter(outcome, job.failures, policy, RandomSpread()), kLongestPause);
    job.due = After(DateTime(now), pause).AsDateTime();
}

bool MakeTimesReadable(Job& job, const std::string& now) {
    Job readable = job;
    if (!Read(job.time_started)) readable.time_started = now;
    if (!job.next_attempt.empty() && !Read(job.next_attempt)) readable.next_attempt = "";
    if (!job.last_run.empty() && !Read(job.last_run)) readable.last_run = now;
    if (!job.due.empty() && !Read(job.due)) readable.due = now;
    if (readable == job) return false;
    LogTimes(job, "a time cannot be read");
    job = readable;
    return true;
}

void MendTimes(Transaction& transaction, const std::string& now, const RetryPolicy& policy) {
    const std::string latest =
        After(DateTime(now), std::max<seconds>(kLongestPause, policy.retry)).AsDateTime();
    for (const int id : runs::WaitingTooLong(transaction, now, latest, kMendedAtOnce)) {
        Job job = jobs::FindShown(transaction, id);
        if (!MakeTimesReadable(job, now)) LogTimes(job, "a time lies in the future, was the clock set back?");
        job.due = job.failed ? After(DateTime(now), PauseOfStopped(policy)).AsDateTime()
                             : NextDue(job, policy, now);
        job.next_attempt = std::min(job.next_attempt, job.due);
        job.last_run = std::min(job.last_run, now);
        job.time_started = std::min(job.time_started, now);
        runs::SetTimes(transaction, job);
    }
}

void FreeJob(Transaction& transaction, Job job, const std::string& now, const RetryPolicy& policy) {
    if (MakeTimesReadable(job, now)) runs::SetTimes(transaction, job);
    job.last_run = now;
    PlanNextRun(job, Outcome::kUnreached, policy, now);
    NoteDeath(transaction, job.id);
    run_end::CountDeath(transaction);
    runs::Free(transaction, job);
}

void FreeJobsOfTheDead(Transaction& transaction, const std::string& now, const RetryPolicy& policy) {
    for (const Job& job : jobs::Running(transaction)) {
        if (Alive(job.holder)) continue;
        Log("job " + std::to_string(job.id) + ": its run has ended without writing the job back");
        FreeJob(transaction, job, now, policy);
    }
}

}  // namespace zelvek
