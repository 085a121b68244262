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

// Behaviours of: Scheduling

// Behaviour: A new job is started at once, a verified ...
TEST(NextDue, OfANewJobIsItsStart) { EXPECT_EQ(NextDue(Waiting(""), kPolicy), "2025-12-31 12:00:00"); }

// Behaviour: A job is started at the time that it asks ...
TEST(NextDue, OfAJobThatAsksForNoTimeIsTheRetryIntervalLater) {
    EXPECT_EQ(NextDue(Waiting("2026-01-01 00:00:00"), kPolicy), "2026-01-01 00:01:00");
    EXPECT_EQ(NextDue(Waiting("2025-12-31 23:59:30"), kPolicy), "2026-01-01 00:00:30");
}

// Behaviour: A job is started at the time that it asks ...
TEST(NextDue, IsTheTimeThatTheJobAsksFor) {
    EXPECT_EQ(NextDue(Waiting("2026-01-01 00:00:00", "2026-01-01 00:30:00"), kPolicy), "2026-01-01 00:30:00");
    EXPECT_EQ(NextDue(Waiting("", "2026-01-01 00:30:00"), kPolicy), "2026-01-01 00:30:00");
}

// Behaviour: A job is started at the time that it asks ...
// A run that fails early leaves the time that the run before it asked for.
TEST(NextDue, IsNotATimeThatHasPassedBeforeTheLastRun) {
    EXPECT_EQ(NextDue(Waiting("2026-01-01 00:30:05", "2026-01-01 00:30:00"), kPolicy), "2026-01-01 00:31:05");
}

}  // namespace
}  // namespace zelvek
