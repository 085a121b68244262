// The time, and waiting for it.
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <ctime>

#include "interrupt.h"
#include "vek/date.h"
#include "vek/proc.h"

namespace vek_date {

DateTime::DateTime() : seconds_(std::time(nullptr)) {}

}  // namespace vek_date

namespace vek_proc {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Short enough that no arithmetic on it, and no call that takes it, overflows.
constexpr std::uint64_t kLongestWait = 3'600'000;

void SleepUntil(steady_clock::time_point end) {
    vek_interrupt::Check();
    for (auto now = steady_clock::now(); now < end; now = steady_clock::now()) {
        pollfd wake[] = {{vek_interrupt::WakeFd(), POLLIN, 0}};
        const auto left = std::chrono::ceil<milliseconds>(end - now).count();
        poll(wake, std::size(wake), static_cast<int>(left));
        vek_interrupt::Check();
    }
}

}  // namespace

void Sleep(std::uint64_t milliseconds) {
    auto end = steady_clock::now();
    do {
        const std::uint64_t part = std::min(milliseconds, kLongestWait);
        end += std::chrono::milliseconds(part);
        SleepUntil(end);
        milliseconds -= part;
    } while (milliseconds > 0);
}

}  // namespace vek_proc
