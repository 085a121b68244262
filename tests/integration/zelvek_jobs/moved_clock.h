#pragma once

#include <chrono>
#include <string>

#include "vek/date.h"

namespace zelvek::testing {

/// Where the tests put the clock.
const std::string kNow = "2031-05-01 12:00:00";

/// While this lives, the framework's clock, and whatever else in this process asks for the time of day,
/// stands where it was put. One at a time.
class MovedClock {
public:
    explicit MovedClock(const std::string& moment);
    ~MovedClock();
    MovedClock(const MovedClock&) = delete;
    MovedClock& operator=(const MovedClock&) = delete;

    void Set(const std::string& moment);
    void Advance(std::chrono::seconds time);
};

}  // namespace zelvek::testing
