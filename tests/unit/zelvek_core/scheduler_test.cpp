#include "zelvek/jobs/scheduler.h"

#include <gtest/gtest.h>

namespace zelvek {
namespace {

constexpr std::chrono::seconds kRetry{60};

jobs::Job Waiting(const std::string& last_run, const std::string& next_attempt = "") {
    jobs::Job job;
    job.last_run = last_run;
    job.next_attempt = next_attempt;
    return job;
}

// Behaviours of: Scheduling

// Behaviour: A new job is started at once, a verified ...
TEST(IsDue, ANewJobIsAtOnce) { EXPECT_TRUE(IsDue(Waiting(""), "2026-01-01 00:00:00", kRetry)); }

// Behaviour: A job is started at the time that it asks ...
TEST(IsDue, AJobThatAsksForNoTimeIsAfterTheRetryInterval) {
    EXPECT_FALSE(IsDue(Waiting("2026-01-01 00:00:00"), "2026-01-01 00:00:59", kRetry));
    EXPECT_TRUE(IsDue(Waiting("2026-01-01 00:00:00"), "2026-01-01 00:01:00", kRetry));
    EXPECT_TRUE(IsDue(Waiting("2025-12-31 23:59:30"), "2026-01-01 00:00:30", kRetry));
}

// Behaviour: A job is started at the time that it asks ...
TEST(IsDue, AJobIsAtTheTimeItAsksFor) {
    EXPECT_FALSE(IsDue(Waiting("2026-01-01 00:00:00", "2026-01-01 00:30:00"), "2026-01-01 00:29:59", kRetry));
    EXPECT_TRUE(IsDue(Waiting("2026-01-01 00:00:00", "2026-01-01 00:30:00"), "2026-01-01 00:30:00", kRetry));
    EXPECT_FALSE(IsDue(Waiting("", "2026-01-01 00:30:00"), "2026-01-01 00:00:00", kRetry));
}

// Behaviour: A job is started at the time that it asks ...
// A run that fails early leaves the time that the run before it asked for.
TEST(IsDue, ATimeThatHasPassedBeforeTheLastRunDoesNotCount) {
    EXPECT_FALSE(IsDue(Waiting("2026-01-01 00:30:05", "2026-01-01 00:30:00"), "2026-01-01 00:30:06", kRetry));
    EXPECT_TRUE(IsDue(Waiting("2026-01-01 00:30:05", "2026-01-01 00:30:00"), "2026-01-01 00:31:05", kRetry));
}

// Behaviour: A new job is started at once, a verified ...
TEST(IsDue, AJobThatIsDoneOrUnderWayNeverIs) {
    for (bool jobs::Job::*flag : {&jobs::Job::verified, &jobs::Job::failed, &jobs::Job::processing}) {
        jobs::Job job = Waiting("");
        job.*flag = true;
        EXPECT_FALSE(IsDue(job, "2026-01-01 00:00:00", kRetry));
    }
}

}  // namespace
}  // namespace zelvek
