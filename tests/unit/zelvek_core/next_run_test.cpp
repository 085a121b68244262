#include "zelvek/jobs/next_run.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace zelvek
