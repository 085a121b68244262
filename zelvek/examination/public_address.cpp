#include "zelvek/examination/public_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

namespace zelvek {

namespace {

using Address = std::array<std::uint8_t, 16>;

/// An IPv4 address stands in IPv6 form.
std::optional<Address> Read(const std::string& text) {
    if (text.find('\0') != std::string::npos) return std::nullopt;
    Address address{};
    if (inet_pton(AF_INET6, text.c_str(), address.data()) == 1) return address;
    address.fill(0);
    address[10] = address[11] = 0xff;
    if (inet_pton(AF_INET, text.c_str(), address.data() + 12) == 1) return address;
    return std::nullopt;
}

struct Block {
    const char* first;
    int bits;  // that all its addresses have in common
};

constexpr std::array kBlocks{
    Block{"0.0.0.0", 8},      Block{"10.0.0.0", 8},    Block{"100.64.0.0", 10}, Block{"127.0.0.0", 8},
    Block{"169.254.0.0", 16}, Block{"172.16.0.0", 12}, Block{"192.0.0.0", 24},  Block{"192.168.0.0", 16},
    Block{"198.18.0.0", 15},  Block{"224.0.0.0", 3},   Block{"::", 96},         Block{"64:ff9b::", 32},
    Block{"2002::", 16},      Block{"fc00::", 7},      Block{"fe80::", 9},      Block{"ff00::", 8}};

bool Holds(const Block& block, const Address& address) {
    const Address first = Read(block.first).value_or(Address{});
    const bool ipv4 = std::string(block.first).find('.') != std::string::npos;
    const int bits = block.bits + (ipv4 ? 96 : 0);
    for (int bit = 0; bit < bits; ++bit) {
        const auto byte = static_cast<std::size_t>(bit / 8);
        const int mask = 0x80 >> (bit % 8);
        if ((first[byte] & mask) != (address[byte] & mask)) return false;
    }
    return true;
}

}  // namespace

bool IsAddress(const std::string& text) { return Read(text).has_value(); }

bool IsPublicAddress(const std::string& text) {
    const auto address = Read(text);
    return address && std::none_of(kBlocks.begin(), kBlocks.end(),
                                   [&](const Block& block) { return Holds(block, *address); });
}

}  // namespace zelvek
