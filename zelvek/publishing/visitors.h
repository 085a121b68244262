#pragma once

#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "zelvek/base/deadlines.h"

namespace zelvek {

/// The open connections of a server for strangers. A new one always finds a place: where there are too many,
/// the oldest of the network that has the most makes room, so that whoever keeps connections open keeps
/// nobody else out. Safe from any thread.
class Visitors {
public:
    static constexpr std::size_t kOfOneNetwork = 64;
    static constexpr std::size_t kAltogether = 192;

    /// `limit`: for a connection as a whole, request and answer, however busy it looks.
    explicit Visitors(std::chrono::milliseconds limit) : limit_(limit) {}

    void Came(int connection, const sockaddr* address);

    /// Before it is closed.
    void Left(int connection);

private:
    struct Visitor {
        std::string network;
        std::uint64_t turn;
    };

    void MakeRoom(const std::string& network);
    void EndOldestOfTheLargest();
    void EndOldestOf(const std::string& network);
    void Forget(std::map<int, Visitor>::iterator visitor);

    std::mutex mutex_;
    std::chrono::milliseconds limit_;
    std::map<int, Visitor> visitors_;              // without those that had to make room
    std::map<std::string, std::size_t> networks_;  // how many each has
    std::uint64_t turns_ = 0;
    Deadlines deadlines_;
};

/// What strangers are told apart by: an IPv4 address; of an IPv6 address the first half, since one machine
/// has as many of the others as it likes. Bytes, not for people.
std::string NetworkOf(const sockaddr* address);

}  // namespace zelvek
