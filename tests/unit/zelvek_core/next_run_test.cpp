#include "zelvek/jobs/next_run.h"

#include <gtest/gtest.h>

#include <vector>

namespace zelvek {
namespace {

constexpr RetryPolicy kPolicy{std::chrono::seconds{60}};

Job Waiting(const std::string& last_run, const std::string& next_attempt = "") {
    Job job;
    job.time_started = "2025-12-31 12:00:00";
    job.last_run = last_run;
    job.next_attempt = next_attempt;
    return job;
}

/// When it is due at the end of its last run, or later.
std::string Due(const Job& job, const std::string& now = "") {
    return NextDue(job, kPolicy, now.empty() ? job.last_run : now);
}

// Behaviours of: Scheduling

// Behaviour: A new job is started at once, a verified ...
TEST(NextDue, OfANewJobIsItsStart) {
    EXPECT_EQ(Due(Waiting(""), "2026-01-01 00:00:00"), "2025-12-31 12:00:00");
}

// Behaviour: A job is started at the time that it asks ...
TEST(NextDue, OfAJobThatAsksForNoTimeIsTheRetryIntervalLater) {
    EXPECT_EQ(Due(Waiting("2026-01-01 00:00:00")), "2026-01-01 00:01:00");
    EXPECT_EQ(Due(Waiting("2025-12-31 23:59:30")), "2026-01-01 00:00:30");
    EXPECT_EQ(Due(Waiting("2026-01-01 00:00:00"), "2026-01-01 12:00:00"), "2026-01-01 00:01:00");
}

// Behaviour: A job is started at the time that it asks ...
TEST(NextDue, IsTheTimeThatTheJobAsksFor) {
    EXPECT_EQ(Due(Waiting("2026-01-01 00:00:00", "2026-01-01 00:30:00")), "2026-01-01 00:30:00");
    EXPECT_EQ(Due(Waiting("", "2026-01-01 00:30:00"), "2026-01-01 00:00:00"), "2026-01-01 00:30:00");
}

// Behaviour: A job is started at the time that it asks ...
// A run that fails early leaves the time that the run before it asked for.
TEST(NextDue, IsNotATimeThatHasPassedBeforeTheLastRun) {
    EXPECT_EQ(Due(Waiting("2026-01-01 00:30:05", "2026-01-01 00:30:00")), "2026-01-01 00:31:05");
}

// Behaviour: No run puts off the next one by more than a day, the longest that a job lasts
TEST(NextDue, IsADayLaterAtMost) {
    EXPECT_EQ(Due(Waiting("2026-01-01 00:00:00", "2026-01-02 00:00:00")), "2026-01-02 00:00:00");
    EXPECT_EQ(Due(Waiting("2026-01-01 00:00:00", "2026-01-02 00:00:01")), "2026-01-02 00:00:00");
    EXPECT_EQ(Due(Waiting("2026-01-01 00:00:00", "9999-12-31 23:59:59")), "2026-01-02 00:00:00");
}

// Behaviour: A job whose times lie in the future, since the clock was set back, runs when it would have run
// had
//   its last run ended now, and one that has never run at once
TEST(NextDue, OfARunInTheFutureIsCountedFromNow) {
    const std::string now = "2020-05-05 05:00:00";
    EXPECT_EQ(Due(Waiting("2026-01-01 00:00:00"), now), "2020-05-05 05:01:00");
    EXPECT_EQ(Due(Waiting("2026-01-01 00:00:00", "2026-01-01 00:30:00"), now), "2020-05-05 05:30:00");
    EXPECT_EQ(Due(Waiting("2026-01-01 00:30:05", "2026-01-01 00:30:00"), now), "2020-05-05 05:01:00");
    EXPECT_EQ(Due(Waiting(""), now), now);
}

// Behaviour: A time of a job that cannot be read counts as now, and keeps no other job waiting
TEST(NextDue, OfTimesThatCannotBeReadIsCountedFromNow) {
    const std::string now = "2026-01-01 00:00:00";
    for (const std::string text : {"never", "0", "2026-13-01 00:00:00", "9999-99-99 99:99:99", "\xff"}) {
        EXPECT_EQ(Due(Waiting(text), now), "2026-01-01 00:01:00") << text;
        EXPECT_EQ(Due(Waiting("2025-12-31 23:59:59", text), now), "2026-01-01 00:00:59") << text;
        EXPECT_EQ(Due(Waiting(text, "2026-01-01 00:30:00"), now), "2026-01-01 00:30:00") << text;
        Job job;
        job.time_started = text;
        EXPECT_EQ(Due(job, now), now) << text;
    }
}

// Behaviour: A time of a job that cannot be read ...
TEST(TimesOfAJob, ThatCannotBeReadAreReplaced) {
    const std::string now = "2026-01-01 00:00:00";
    Job job = Waiting("2025-12-31 23:00:00", "2026-01-01 00:30:00");
    job.due = job.next_attempt;
    const Job good = job;
    EXPECT_FALSE(MakeTimesReadable(job, now));
    EXPECT_EQ(job, good);
    job.time_started = job.next_attempt = job.last_run = job.due = "never";
    EXPECT_TRUE(MakeTimesReadable(job, now));
    EXPECT_EQ(job.time_started + "|" + job.next_attempt + "|" + job.last_run + "|" + job.due,
              now + "||" + now + "|" + now);
    EXPECT_FALSE(MakeTimesReadable(job, now));
}

/// The pauses in minutes after one failure after the other.
std::vector<long> Pauses(Outcome outcome) {
    std::vector<long> minutes;
    for (int failures = 1; failures <= 8; ++failures)
        minutes.push_back(PauseAfter(outcome, failures, kPolicy, 0).count() / 60);
    return minutes;
}

// Behaviour: A job that fails waits longer each time: soon again where an exchange failed, up to a day where
// the
//   authority refuses, an hour and more where it asks for patience, a day where a person is needed
TEST(Pause, GrowsWithFailuresByTheirKind) {
    EXPECT_EQ(Pauses(Outcome::kOnItsWay), (std::vector<long>{1, 1, 1, 1, 1, 1, 1, 1}));
    EXPECT_EQ(Pauses(Outcome::kUnreached), (std::vector<long>{1, 2, 5, 15, 30, 60, 60, 60}));
    EXPECT_EQ(Pauses(Outcome::kLimited), (std::vector<long>{60, 180, 360, 1440, 1440, 1440, 1440, 1440}));
    EXPECT_EQ(Pauses(Outcome::kRefused), (std::vector<long>{1, 10, 100, 1440, 1440, 1440, 1440, 1440}));
    EXPECT_EQ(Pauses(Outcome::kForPeople), (std::vector<long>{10, 1440, 1440, 1440, 1440, 1440, 1440, 1440}));
}

// Behaviour: Where a certificate may have been issued that nobody has, the next order comes about a day
//   later at once, and after one quick try where the run was only ended early: an authority limits the
//   certificates of a name
TEST(Pause, IsADayAtOnceWhereACertificateMayHaveBeenIssued) {
    EXPECT_EQ(Pauses(Outcome::kUnfetched), std::vector<long>(8, 1440));
    EXPECT_EQ(Pauses(Outcome::kCutShort), (std::vector<long>{1, 1440, 1440, 1440, 1440, 1440, 1440, 1440}));
}

// Behaviour: A job that fails waits longer each time ...
TEST(Pause, OfADayIsSpreadAndFollowsTheRetryInterval) {
    EXPECT_EQ(PauseAfter(Outcome::kRefused, 9, kPolicy, 1), std::chrono::hours(20));
    EXPECT_EQ(PauseAfter(Outcome::kRefused, 3, kPolicy, 1), std::chrono::minutes(100));
    EXPECT_EQ(PauseAfter(Outcome::kRefused, 2, {std::chrono::seconds{3}}, 1), std::chrono::seconds(30));
    EXPECT_EQ(PauseAfter(Outcome::kRefused, 0, kPolicy, 0), std::chrono::minutes(1));
}

// Behaviour: Failures in a row are counted until a run fails no more
TEST(Plan, CountsFailuresInARow) {
    const std::string now = "2026-01-01 00:00:00";
    Job job = Waiting(now);
    PlanNextRun(job, Outcome::kRefused, kPolicy, now);
    EXPECT_EQ(job.due, "2026-01-01 00:01:00");
    PlanNextRun(job, Outcome::kRefused, kPolicy, now);
    EXPECT_EQ(job.failures, 2);
    EXPECT_EQ(job.due, "2026-01-01 00:10:00");
    PlanNextRun(job, Outcome::kOnItsWay, kPolicy, now);
    EXPECT_EQ(job.failures, 0);
    EXPECT_EQ(job.due, "2026-01-01 00:01:00");
    job.failures = 5;
    job.verified = true;
    PlanNextRun(job, Outcome::kRefused, kPolicy, now);
    EXPECT_EQ(job.failures, 0);
}

// Behaviour: The time that a run has asked for holds though it failed
TEST(Plan, KeepsTheTimeThatWasAskedFor) {
    const std::string now = "2026-01-01 00:00:00";
    Job job = Waiting(now, "2026-01-01 00:30:00");
    PlanNextRun(job, Outcome::kRefused, kPolicy, now);
    EXPECT_EQ(job.due, "2026-01-01 00:30:00");
}

// Behaviour: A stopped job waits about a day before it begins anew
TEST(Plan, OfAStoppedJobIsADayLater) {
    const std::string now = "2026-01-01 00:00:00";
    Job job = Waiting(now);
    job.failed = true;
    PlanNextRun(job, Outcome::kOnItsWay, kPolicy, now);
    EXPECT_GE(job.due, "2026-01-01 20:00:00");
    EXPECT_LE(job.due, "2026-01-02 00:00:00");
    EXPECT_EQ(job.failures, 1);
}

}  // namespace
}  // namespace zelvek
