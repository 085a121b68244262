#include "zelvek/doctor/own_addresses.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>

#include <array>
#include <memory>

namespace zelvek::doctor {

namespace {

std::string TextOf(const sockaddr* address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    const void* number = nullptr;
    if (address->sa_family == AF_INET) number = &reinterpret_cast<const sockaddr_in*>(address)->sin_addr;
    if (address->sa_family == AF_INET6) number = &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr;
    if (number == nullptr || ::inet_ntop(address->sa_family, number, text.data(), text.size()) == nullptr)
        return "";
    return text.data();
}

}  // namespace

bool IsOwnAddress(const std::string& address) {
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) return false;
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> kept(list, &::freeifaddrs);
    for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
        if (each->ifa_addr != nullptr && TextOf(each->ifa_addr) == address) return true;
    }
    return false;
}

}  // namespace zelvek::doctor
