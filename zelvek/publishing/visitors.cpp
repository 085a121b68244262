#include "zelvek/publishing/visitors.h"

#include <netinet/in.h>

#include <algorithm>
#include <cstring>

namespace zelvek {

std::string NetworkOf(const sockaddr* address) {
    if (address->sa_family == AF_INET) {
        sockaddr_in v4{};
        std::memcpy(&v4, address, sizeof v4);
        return {reinterpret_cast<const char*>(&v4.sin_addr), sizeof v4.sin_addr};
    }
    if (address->sa_family != AF_INET6) return "";
    constexpr std::size_t kPrefix = 8;   // bytes of a network
    constexpr std::size_t kMapped = 12;  // before an IPv4 address in an IPv6 one
    sockaddr_in6 v6{};
    std::memcpy(&v6, address, sizeof v6);
    const std::string bytes(reinterpret_cast<const char*>(&v6.sin6_addr), sizeof v6.sin6_addr);
    return IN6_IS_ADDR_V4MAPPED(&v6.sin6_addr) != 0 ? bytes.substr(kMapped) : bytes.substr(0, kPrefix);
}

void Visitors::Came(int connection, const sockaddr* address) {
    const std::string network = NetworkOf(address);
    const std::lock_guard lock(mutex_);
    MakeRoom(network);
    visitors_[connection] = {network, ++turns_};
    ++networks_[network];
    deadlines_.Set(connection, limit_);
}

void Visitors::Left(int connection) {
    deadlines_.Lift(connection);
    const std::lock_guard lock(mutex_);
    const auto visitor = visitors_.find(connection);
    if (visitor != visitors_.end()) Forget(visitor);
}

void Visitors::MakeRoom(const std::string& network) {
    const auto own = networks_.find(network);
    if (own != networks_.end() && own->second >= kOfOneNetwork) {
        EndOldestOf(network);
    } else if (visitors_.size() >= kAltogether) {
        EndOldestOfTheLargest();
    }
}

/// Of networks with the same number of connections the one with the oldest: no address is worse than another.
void Visitors::EndOldestOfTheLargest() {
    std::size_t most = 0;
    for (const auto& [network, count] : networks_) most = std::max(most, count);
    const Visitor* oldest = nullptr;
    for (const auto& [connection, visitor] : visitors_) {
        const bool older = oldest == nullptr || visitor.turn < oldest->turn;
        if (older && networks_.at(visitor.network) == most) oldest = &visitor;
    }
    EndOldestOf(std::string(oldest->network));
}

void Visitors::EndOldestOf(const std::string& network) {
    auto oldest = visitors_.end();
    for (auto each = visitors_.begin(); each != visitors_.end(); ++each) {
        const bool older = oldest == visitors_.end() || each->second.turn < oldest->second.turn;
        if (each->second.network == network && older) oldest = each;
    }
    ::shutdown(oldest->first, SHUT_RDWR);
    Forget(oldest);
}

void Visitors::Forget(std::map<int, Visitor>::iterator visitor) {
    const auto network = networks_.find(visitor->second.network);
    if (--network->second == 0) networks_.erase(network);
    visitors_.erase(visitor);
}

}  // namespace zelvek
