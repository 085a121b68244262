// Stands before the C library's own functions, which the executable's symbols hide.
#include "integration/vek/stopped_clock.h"

#include <dlfcn.h>
#include <poll.h>
#include <ctime>

#include <optional>

namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;

thread_local std::optional<nanoseconds> stopped_at;
thread_local nanoseconds time_slept{0};
thread_local int sleep_count = 0;
thread_local bool polls_wait = false;

nanoseconds TimeOf(const timespec& time) { return seconds(time.tv_sec) + nanoseconds(time.tv_nsec); }

template <class Function>
Function* Original(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    static auto* const original = Original<int(clockid_t, timespec*)>("clock_gettime");
    if (clock != CLOCK_MONOTONIC || !stopped_at) return original(clock, time);
    const nanoseconds now = *stopped_at + time_slept;
    time->tv_sec = std::chrono::floor<seconds>(now).count();
    time->tv_nsec = (now % seconds(1)).count();
    return 0;
}

extern "C" int nanosleep(const timespec* time, timespec* left) {
    static auto* const original = Original<int(const timespec*, timespec*)>("nanosleep");
    if (!stopped_at) return original(time, left);
    time_slept += TimeOf(*time);
    ++sleep_count;
    return 0;
}

extern "C" int poll(pollfd* fds, nfds_t count, int wait) {
    static auto* const original = Original<int(pollfd*, nfds_t, int)>("poll");
    if (!stopped_at || polls_wait || wait <= 0) return original(fds, count, wait);
    const int ready = original(fds, count, 0);
    if (ready != 0) return ready;
    time_slept += std::chrono::milliseconds(wait);
    ++sleep_count;
    return 0;
}

namespace vek_test {

StoppedClock::StoppedClock(Polls polls) {
    timespec now{};
    polls_wait = polls == Polls::kWait;
    clock_gettime(CLOCK_MONOTONIC, &now);
    time_slept = nanoseconds(0);
    sleep_count = 0;
    stopped_at = TimeOf(now);
}

StoppedClock::~StoppedClock() { stopped_at.reset(); }

nanoseconds StoppedClock::slept() const { return time_slept; }
int StoppedClock::sleeps() const { return sleep_count; }

}  // namespace vek_test
