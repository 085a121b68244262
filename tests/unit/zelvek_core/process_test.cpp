#include "zelvek/base/process.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace zelvek {
namespace {

// Behaviours of: What runs publish, and what dead ones leave

// Behaviour: A process is told from a later one of the same id by its start time
TEST(Process, IsFoundWhileItLives) {
    const auto self = FindProcess(::getpid());
    ASSERT_TRUE(self);
    EXPECT_EQ(self->pid, ::getpid());
    EXPECT_GT(self->start, 0);
    EXPECT_TRUE(Alive(*self));
    EXPECT_FALSE(Alive({self->pid, self->start - 1})) << "an earlier process of the same id";
    EXPECT_FALSE(Alive({}));
}

// Behaviour: A process is told from a later one of the ...
TEST(Process, IsDeadBeforeItIsReaped) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::pause();
        ::_exit(0);
    }
    const auto child = FindProcess(pid);
    ASSERT_TRUE(child);
    EXPECT_TRUE(Alive(*child));
    ::kill(pid, SIGKILL);
    siginfo_t info{};
    ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);  // ended, not reaped
    EXPECT_FALSE(Alive(*child));
    ::waitpid(pid, nullptr, 0);
    EXPECT_FALSE(Alive(*child));
}

// Behaviour: A process is told from a later one of the ...
TEST(Process, MayHaveAnyName) {
    char before[16] = {};
    ::prctl(PR_GET_NAME, before);
    const auto expected = FindProcess(::getpid());
    ::prctl(PR_SET_NAME, ") R 1 (x) 2");
    EXPECT_EQ(FindProcess(::getpid()), expected);
    ::prctl(PR_SET_NAME, before);
}

}  // namespace
}  // namespace zelvek
