#include "moved_clock.h"

#include <sys/time.h>

#include <atomic>
#include <cstdint>
#include <ctime>

namespace {

std::atomic<std::int64_t> moved_to{0};  // seconds since 1970; 0: the real time

}  // namespace

// Takes the place of the C library's in this program: the framework's clock asks it.
extern "C" std::time_t time(std::time_t* result) noexcept {
    std::time_t now = moved_to;
    if (now == 0) {
        timeval real{};
        ::gettimeofday(&real, nullptr);
        now = real.tv_sec;
    }
    if (result != nullptr) *result = now;
    return now;
}

namespace zelvek::testing {

MovedClock::MovedClock(const std::string& moment) { Set(moment); }

MovedClock::~MovedClock() { moved_to = 0; }

void MovedClock::Set(const std::string& moment) {
    moved_to = vek_date::DateTime(moment).SecondsSince(vek_date::DateTime("1970-01-01 00:00:00"));
}

void MovedClock::Advance(std::chrono::seconds time) { moved_to += time.count(); }

}  // namespace zelvek::testing
