#pragma once

#include <chrono>

namespace vek_test {

/// For this thread, the steady clock stands still while this lives, and only its sleeps and polls move it on:
/// a test sees how long something waits without waiting, and however busy the machine is. One at a time in
/// each thread.
class StoppedClock {
public:
    /// Polls move the clock on, or wait for what they are to wait for while it stands still.
    enum class Polls { kMoveOn, kWait };

    explicit StoppedClock(Polls polls = Polls::kMoveOn);
    ~StoppedClock();
    StoppedClock(const StoppedClock&) = delete;
    StoppedClock& operator=(const StoppedClock&) = delete;

    std::chrono::nanoseconds slept() const;
    int sleeps() const;
};

}  // namespace vek_test
