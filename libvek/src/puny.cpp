// Internationalised names, by libidn2 (RFC 5891 with the mapping of UTS #46, non-transitional).
#include <idn2.h>

#include <algorithm>
#include <memory>

#include "vek/err.h"
#include "vek/str.h"

namespace str::puny {
namespace {

constexpr std::size_t kLongestLabel = 63;  // RFC 1035 section 2.3.4

bool IsAscii(const std::string& label) {
    return std::all_of(label.begin(), label.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

[[noreturn]] void Refuse(const std::string& name, const std::string& reason) {
    throw vek_err::Error("str", "puny", name + " (" + reason + ")");
}

// One label that is not ASCII. Each comes alone, so that libidn2 cannot take a further character, such as the
// ideographic full stop, for a separator, or drop one: either shows in the result.
std::string EncodeLabel(const std::string& label, const std::string& name) {
    if (label.find('\0') != std::string::npos) Refuse(name, "a label holds a NUL byte");
    std::uint8_t* found = nullptr;
    const auto* source = reinterpret_cast<const std::uint8_t*>(label.c_str());
    const int status = idn2_lookup_u8(source, &found, IDN2_NONTRANSITIONAL | IDN2_NFC_INPUT);
    const std::unique_ptr<std::uint8_t, decltype(&idn2_free)> owner(found, &idn2_free);
    if (status != IDN2_OK) Refuse(name, idn2_strerror(status));
    const std::string encoded = reinterpret_cast<const char*>(found);
    if (encoded.empty() || encoded.find('.') != std::string::npos)
        Refuse(name, "a label is no label when mapped");
    if (encoded.size() > kLongestLabel) Refuse(name, "a label is too long");
    return encoded;
}

}  // namespace

std::string Encode(const std::string& name) {
    std::string encoded;
    for (std::size_t begin = 0; begin <= name.size();) {
        const auto end = std::min(name.find('.', begin), name.size());
        const std::string label = name.substr(begin, end - begin);
        encoded += IsAscii(label) ? label : EncodeLabel(label, name);
        if (end < name.size()) encoded += '.';
        begin = end + 1;
    }
    return encoded;
}

}  // namespace str::puny
