#include "zelvek/base/deadlines.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using zelvek::Deadlines;

/// Two ends of a connection.
class Pair {
public:
    Pair() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_), 0);
        const timeval long_enough{60, 0};
        setsockopt(ends_[1], SOL_SOCKET, SO_RCVTIMEO, &long_enough, sizeof long_enough);
    }
    ~Pair() {
        for (const int end : ends_) close(end);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    int near() const { return ends_[0]; }

    /// Waits for the connection's end.
    bool Ends() const {
        char byte = 0;
        return recv(ends_[1], &byte, 1, 0) == 0;
    }

    bool IsOpen() const {
        char byte = 0;
        return recv(ends_[1], &byte, 1, MSG_DONTWAIT) < 0;
    }

private:
    int ends_[2] = {-1, -1};
};

// Behaviours of: Socket and answers

// Behaviour: A connection whose time is up is shut down; one that has time, or that has no limit any more,
// stays
TEST(Deadlines, EndConnectionsWhoseTimeIsUp) {
    const Pair late;
    const Pair lifted;
    const Pair moved;
    const Pair early;
    Deadlines deadlines;
    deadlines.Set(lifted.near(), hours(1));
    deadlines.Lift(lifted.near());
    deadlines.Set(early.near(), hours(1));
    deadlines.Set(moved.near(), hours(1));
    deadlines.Set(moved.near(), milliseconds(0));
    deadlines.Set(late.near(), milliseconds(50));
    EXPECT_TRUE(moved.Ends());
    EXPECT_TRUE(late.Ends());
    EXPECT_TRUE(lifted.IsOpen());
    EXPECT_TRUE(early.IsOpen());
}

// Behaviour: A connection whose time is up is shut down ...
TEST(Deadlines, CanBeShortenedForAllThereAreAndWillBe) {
    const Pair before;
    const Pair lifted;
    const Pair after;
    Deadlines deadlines;
    deadlines.Set(before.near(), hours(1));
    deadlines.Shorten(milliseconds(1));
    EXPECT_TRUE(before.Ends());
    deadlines.Set(after.near(), hours(1));
    EXPECT_TRUE(after.Ends());
    EXPECT_TRUE(lifted.IsOpen());
}

}  // namespace
