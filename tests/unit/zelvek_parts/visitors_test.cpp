#include "zelvek/publishing/visitors.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <deque>
#include <memory>

#include "zelvek/base/descriptor.h"

namespace {

using zelvek::Visitors;

/// Both ends of a connection.
struct Pair {
    Pair() {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        server = zelvek::Descriptor(ends[0]);
        client = zelvek::Descriptor(ends[1]);
    }

    bool Ended() const {
        char byte = 0;
        return recv(client.get(), &byte, 1, MSG_DONTWAIT) == 0;
    }

    zelvek::Descriptor server;
    zelvek::Descriptor client;
};

// Behaviours of: Answer files (ambrin_challenge)

// Behaviour: Where every network has one connection to the web server for answers, the oldest makes room,
// whatever its
//   address
TEST(Visitors, OfEqualNetworksTheOldestMakesRoom) {
    Visitors visitors(std::chrono::minutes(1));
    std::deque<Pair> pairs(Visitors::kAltogether + 2);
    std::size_t number = 0;
    for (const Pair& pair : pairs) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        // Later ones have smaller addresses.
        address.sin_addr.s_addr = htonl(static_cast<std::uint32_t>(0x7f010000 - number++));
        visitors.Came(pair.server.get(), reinterpret_cast<const sockaddr*>(&address));
    }
    EXPECT_TRUE(pairs[0].Ended());
    EXPECT_TRUE(pairs[1].Ended());
    for (std::size_t i = 2; i < pairs.size(); ++i) EXPECT_FALSE(pairs[i].Ended()) << i;
    for (const Pair& pair : pairs) visitors.Left(pair.server.get());
}

}  // namespace
