// What a thread's SIGPIPE is while it writes to what may be closed, and after that.
#include "libvek/src/sigpipe.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

namespace {

bool IsPending() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

bool IsBlocked() {
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    return sigismember(&blocked, SIGPIPE) == 1;
}

// Writes to a pipe that nobody reads.
void WriteInVain() {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);  // NOLINT(android-cloexec-pipe)
    close(ends[0]);
    EXPECT_EQ(write(ends[1], "x", 1), -1);
    close(ends[1]);
}

// Behaviours of: Child processes and sleeps

// Behaviour: Threads may run children at once, and the ...
TEST(Sigpipe, OfAWriteInVainIsTakenAway) {
    {
        const vek_proc::SigpipeBlocked blocked;
        EXPECT_TRUE(IsBlocked());
        WriteInVain();
        EXPECT_TRUE(IsPending());
    }
    EXPECT_FALSE(IsPending());
    EXPECT_FALSE(IsBlocked());
}

// Behaviour: Threads may run children at once, and the ...
TEST(Sigpipe, OfTheProgramsOwnStaysForIt) {
    sigset_t sigpipe;
    sigset_t before;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigpipe, &before);
    WriteInVain();
    {
        const vek_proc::SigpipeBlocked blocked;
        WriteInVain();
    }
    EXPECT_TRUE(IsPending());
    EXPECT_TRUE(IsBlocked());
    const timespec no_wait{};
    EXPECT_EQ(sigtimedwait(&sigpipe, nullptr, &no_wait), SIGPIPE);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// Behaviour: Threads may run children at once, and the ...
TEST(Sigpipe, IsTheOnlySignalHeldBack) {
    sigset_t before;
    sigset_t during;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    const vek_proc::SigpipeBlocked blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &during);
    for (int number = 1; number < SIGRTMIN; ++number)
        EXPECT_EQ(sigismember(&during, number), number == SIGPIPE ? 1 : sigismember(&before, number))
            << number;
}

}  // namespace
