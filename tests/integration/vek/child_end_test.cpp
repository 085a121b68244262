// How the end of a child is noticed where the system cannot announce it.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <vector>

#include "vek/proc.h"

namespace {

bool announces = true;   // whether the system has pidfd_open
std::vector<int> waits;  // milliseconds, of each poll

}  // namespace

// The executable's symbols hide the C library's.
extern "C" long syscall(long number, ...) noexcept {  // NOLINT(cert-dcl50-cpp)
    std::va_list values;
    va_start(values, number);
    long value[6];
    for (long& each : value) each = va_arg(values, long);
    va_end(values);
    if (number == SYS_pidfd_open && !announces) {
        errno = ENOSYS;
        return -1;
    }
    static auto* const original = reinterpret_cast<long (*)(long, ...)>(dlsym(RTLD_NEXT, "syscall"));
    return original(number, value[0], value[1], value[2], value[3], value[4], value[5]);
}

extern "C" int poll(pollfd* fds, nfds_t count, int wait) {
    static auto* const original = reinterpret_cast<int (*)(pollfd*, nfds_t, int)>(dlsym(RTLD_NEXT, "poll"));
    waits.push_back(wait);
    return original(fds, count, wait);
}

namespace {

using vek_proc::Execute;

class ChildEnd : public testing::Test {
protected:
    ChildEnd() { waits.clear(); }
    ~ChildEnd() override { announces = true; }
};

TEST_F(ChildEnd, IsWaitedForInOneGo) {
    EXPECT_EQ(Execute("sleep 0.3; exit 3", 0).Result(), 3);
    EXPECT_EQ(waits, std::vector<int>{3'600'000});
}

TEST_F(ChildEnd, IsLookedForInShortStepsWhereNothingAnnouncesIt) {
    announces = false;
    EXPECT_EQ(Execute("sleep 0.3; exit 3", 0).Result(), 3);
    ASSERT_GE(waits.size(), 2U);
    EXPECT_EQ(waits, std::vector<int>(waits.size(), 20));
}

TEST_F(ChildEnd, IsWaitedForInPeaceByWhatItDoesNotRead) {
    Execute child("exec <&-; sleep 0.3; exit 4", vek_proc::kPipeIn);
    child.In() << std::string(1 << 20, 'x');
    EXPECT_EQ(child.Result(), 4);
    EXPECT_LE(waits.size(), 20U);
}

TEST_F(ChildEnd, IsWaitedForInPeaceByWhatItDoesNotWrite) {
    Execute child("exec >&-; sleep 0.3; exit 4", vek_proc::kPipeOut);
    EXPECT_EQ(child.Result(), 4);
    EXPECT_LE(waits.size(), 20U);
}

TEST_F(ChildEnd, IsLookedForWhenItsTimeIsUp) {
    Execute child("sleep 300", vek_proc::kOwnSession);
    child.LimitTime(std::chrono::milliseconds(200));
    EXPECT_EQ(child.Result(), 128 + 9);
    ASSERT_GE(waits.size(), 2U);
    EXPECT_LE(waits.front(), 200);
    EXPECT_EQ(waits.back(), 3'600'000) << "after it was told to end, there is nothing to limit";
}

}  // namespace
