// Internationalised names, by libidn2 (RFC 5891 with the mapping of UTS #46, non-transitional).
#include <idn2.h>

#include <algorithm>
#include <memory>

#include "vek/err.h"
#include "vek/str.h"

namespace str::puny {
namespace {

bool IsAscii(const std::string& label) {
    return std::all_of(label.begin(), label.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

[[noreturn]] void Refuse(const std::string& name, const std::string& reason) {
    throw vek_err::Error("str", "puny", name + " (" + reason + ")");
}

std::string Lookup(const std::string& label, const std::string& name) {
    std::uint8_t* found = nullptr;
    const auto* source = reinterpret_cast<const std::uint8_t*>(label.c_str());
    const int status = idn2_lookup_u8(source, &found, IDN2_NONTRANSITIONAL | IDN2_NFC_INPUT);
    const std::unique_ptr<std::uint8_t, decltype(&idn2_free)> owner(found, &idn2_free);
    if (status != IDN2_OK) Refuse(name, idn2_strerror(status));
    return reinterpret_cast<const char*>(found);
}

// The mapping drops some invisible characters, the soft hyphen for one; a certificate for the shorter name is
// not what was asked for. Encoded alone, such a character gives an empty text.
bool IsDropped(const std::string& character) {
    try {
        return Lookup(character, character).empty();
    } catch (const vek_err::Error&) {
        return false;  // a combining mark, say, is fine where it stands
    }
}

bool HasDropped(const std::string& label) {
    for (std::size_t begin = 0; begin < label.size();) {
        std::size_t end = begin + 1;
        while (end < label.size() && (static_cast<unsigned char>(label[end]) & 0xC0U) == 0x80U) ++end;
        if (end - begin > 1 && IsDropped(label.substr(begin, end - begin))) return true;
        begin = end;
    }
    return false;
}

// Encodes one label that is not ASCII; the library refuses one that is too long. Labels are encoded one by
// one and each result is checked, because the mapping also turns some characters into a dot (the ideographic
// full stop) or into characters that no name may hold.
std::string EncodeLabel(const std::string& label, const std::string& name) {
    constexpr char kOfNames[] = "abcdefghijklmnopqrstuvwxyz0123456789-_";
    if (label.find('\0') != std::string::npos) Refuse(name, "a label holds a NUL byte");
    std::string encoded = Lookup(label, name);
    if (HasDropped(label)) Refuse(name, "a label holds a character that its ASCII form would drop");
    if (encoded.find_first_not_of(kOfNames) != std::string::npos)
        Refuse(name, "a label's ASCII form is no label");
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
