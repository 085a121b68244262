// base64 and hexadecimal digits.
#include <cstdint>

#include "vek/str.h"

namespace str {

namespace base64 {

std::string Encode(const std::string& bytes) {
    constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        std::uint32_t group = 0;
        for (std::size_t i = at; i < at + 3; ++i) {
            group = group << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
        }
        for (int shift = 18; shift >= 0; shift -= 6) text += kAlphabet[group >> shift & 63U];
    }
    const std::size_t padding = (3 - bytes.size() % 3) % 3;
    return text.replace(text.size() - padding, padding, padding, '=');
}

}  // namespace base64

namespace hex {
namespace {

int Digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

std::string Encode(const std::string& bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string digits;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        digits += kDigits[value >> 4U];
        digits += kDigits[value & 15U];
    }
    return digits;
}

std::string Decode(const std::string& digits) {
    std::string bytes;
    int high = -1;
    for (const char c : digits) {
        const int digit = Digit(c);
        if (digit < 0) break;
        if (high >= 0) bytes += static_cast<char>(high * 16 + digit);
        high = high >= 0 ? -1 : digit;
    }
    if (high >= 0) bytes += static_cast<char>(high);
    return bytes;
}

}  // namespace hex
}  // namespace str
