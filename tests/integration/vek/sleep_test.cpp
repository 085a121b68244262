// Sleeps of hours, on a clock that stands still.
#include <gtest/gtest.h>

#include <chrono>

#include "integration/vek/stopped_clock.h"
#include "vek/proc.h"

namespace {

using std::chrono::milliseconds;

// Behaviours of: Child processes and sleeps

// Behaviour: A sleep takes its time, the longest that ...
TEST(LongSleep, TakesItsTimeToTheMillisecondInStepsOfAnHour) {
    constexpr std::uint64_t kHour = 3'600'000;
    for (const std::uint64_t time :
         {std::uint64_t{0}, std::uint64_t{1}, kHour - 1, kHour, kHour + 1, 2 * kHour + 1}) {
        const vek_test::StoppedClock clock;
        vek_proc::Sleep(time);
        EXPECT_EQ(clock.slept(), milliseconds(time));
        EXPECT_EQ(clock.sleeps(), (time + kHour - 1) / kHour) << time;
    }
}

}  // namespace
