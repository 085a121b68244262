// How the end of a child is noticed where the system cannot announce it.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <vector>

#include "vek/proc.h"

namespace {

// Each thread's own: those of other tests pass through here as well.
thread_local bool announces = true;    // whether the system has pidfd_open
thread_local std::vector<int> waits;   // milliseconds, of each poll
thread_local std::vector<int> looks;   // options, of each look at a child
thread_local bool looks_late = false;  // not before the child has ended
thread_local int interruptions = 0;    // of the next looks

}  // namespace

// Its six values are more than some callers pass.
extern "C" __attribute__((no_sanitize("address"))) long syscall(long number, ...) noexcept;

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

extern "C" pid_t waitpid(pid_t pid, int* status, int options) {
    static auto* const original = reinterpret_cast<pid_t (*)(pid_t, int*, int)>(dlsym(RTLD_NEXT, "waitpid"));
    looks.push_back(options);
    if (interruptions > 0) {
        --interruptions;
        errno = EINTR;
        return -1;
    }
    siginfo_t info{};
    if (looks_late) waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
    return original(pid, status, options);
}

namespace {

using vek_proc::Execute;

class ChildEnd : public testing::Test {
protected:
    ChildEnd() {
        waits.clear();
        looks.clear();
    }
    ~ChildEnd() override {
        announces = true;
        looks_late = false;
    }
};

// Behaviours of: Child processes and sleeps

// Behaviour: The end of a child is waited for in one go, in steps of 20 milliseconds where the system cannot
//   announce it, and never in a busy loop
TEST_F(ChildEnd, IsWaitedForInOneGo) {
    EXPECT_EQ(Execute("sleep 0.3; exit 3", 0).Result(), 3);
    EXPECT_EQ(waits, std::vector<int>{3'600'000});
}

// Behaviour: The end of a child is waited for in one go ...
TEST_F(ChildEnd, IsLookedForInShortStepsWhereNothingAnnouncesIt) {
    announces = false;
    EXPECT_EQ(Execute("sleep 0.3; exit 3", 0).Result(), 3);
    ASSERT_GE(waits.size(), 2U);
    EXPECT_EQ(waits, std::vector<int>(waits.size(), 20));
}

// Behaviour: The end of a child is waited for in one go ...
TEST_F(ChildEnd, IsWaitedForInPeaceByWhatItDoesNotRead) {
    Execute child("exec <&-; sleep 0.3; exit 4", vek_proc::kPipeIn);
    child.In() << std::string(1 << 20, 'x');
    EXPECT_EQ(child.Result(), 4);
    EXPECT_LE(waits.size(), 20U);
}

// Behaviour: The end of a child is waited for in one go ...
TEST_F(ChildEnd, IsWaitedForInPeaceByWhatItDoesNotWrite) {
    Execute child("echo x; sleep 0.2; exec >&-; sleep 0.3; exit 4", vek_proc::kPipeOut);
    EXPECT_EQ(child.Result(), 4);
    EXPECT_LE(waits.size(), 20U);
}

// Behaviour: A child is waited for to its end and no longer ...
// What it writes between the last reading and its end.
TEST_F(ChildEnd, LeavesOutputThatIsReadToItsLastByte) {
    looks_late = true;
    for (const std::string last : {"b", "bc", "b\n"}) {
        Execute child("printf a; sleep 0.2; printf '" + last + "'; exit 5", vek_proc::kPipeOut);
        EXPECT_EQ(child.Str(), "a" + last);
        EXPECT_EQ(child.Result(), 5);
    }
}

// Behaviour: A command that is not there has status 127 ...
TEST_F(ChildEnd, IsLookedForAgainWhereASignalCameBetween) {
    interruptions = 2;
    EXPECT_EQ(Execute("exit 6", 0).Result(), 6);
    EXPECT_EQ(interruptions, 0);
}

// Behaviour: A program that ignores its children gets status 255
TEST_F(ChildEnd, IsStatus255WhereTheProgramIgnoresItsChildren) {
    const auto before = std::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(Execute("exit 6", 0).Result(), 255);
    std::signal(SIGCHLD, before);
}

// Behaviour: A child is waited for to its end and no longer ...
TEST_F(ChildEnd, IsWaitedForWhereItIsBroughtAbout) {
    { const Execute dropped("sleep 300", vek_proc::kOwnSession); }
    EXPECT_EQ(looks, std::vector<int>{0});
}

// Behaviour: The end of a child is waited for in one go ...
TEST_F(ChildEnd, IsLookedForWhenItsTimeIsUp) {
    Execute child("sleep 300", vek_proc::kOwnSession);
    child.LimitTime(std::chrono::milliseconds(200));
    EXPECT_EQ(child.Result(), 128 + 9);
    ASSERT_GE(waits.size(), 2U);
    EXPECT_LE(waits.front(), 200);
    EXPECT_EQ(waits.back(), 3'600'000) << "after it was told to end, there is nothing to limit";
}

}  // namespace
