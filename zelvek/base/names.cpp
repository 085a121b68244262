#include "zelvek/base/names.h"

#include <algorithm>

#include "vek/err.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/text.h"

namespace zelvek::names {

namespace {

constexpr std::size_t kMaxName = 253;
constexpr std::size_t kMaxLabel = 63;

bool IsAlnum(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

bool IsLabel(const std::string& label) {
    if (label.empty() || label.size() > kMaxLabel || label.front() == '-' || label.back() == '-')
        return false;
    return std::all_of(label.begin(), label.end(), [](char c) { return IsAlnum(c) || c == '-' || c == '_'; });
}

bool IsName(std::string name) {
    if (name.empty() || name.size() > kMaxName || name.back() == '.') return false;
    std::string label;
    while (!name.empty()) {
        label = str::GetWord(name, '.');
        if (!IsLabel(label)) return false;
    }
    // With a last label of digits alone it could be read as an IPv4 address.
    return !std::all_of(label.begin(), label.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// The length of the well-formed UTF-8 character at `at` that XML 1.0 allows; 0 for anything else.
std::size_t CharacterLength(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned lead = byte(at);
    if (lead < 0x80) return lead >= 0x20 || lead == '\t' || lead == '\n' || lead == '\r' ? 1 : 0;
    const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4) return 0;
    unsigned point = lead & (0xffU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xc0U) != 0x80U) return 0;
        point = point << 6 | (byte(at + i) & 0x3fU);
    }
    const bool overlong = (length == 3 && point < 0x800) || (length == 4 && point < 0x10000);
    const bool outside =
        (point >= 0xd800 && point <= 0xdfff) || point > 0x10ffff || point == 0xfffe || point == 0xffff;
    return overlong || outside ? 0 : length;
}

}  // namespace

void CheckUser(const std::string& user) {
    const bool good = !user.empty() && user.size() <= kMaxName && user[0] != '.' && user[0] != '-' &&
                      std::all_of(user.begin(), user.end(),
                                  [](char c) { return IsAlnum(c) || c == '.' || c == '_' || c == '-'; });
    if (!good) throw Error(Code::kValue, "user", user, "\"" + user + "\" is no user name");
}

void CheckCertname(const std::string& certname) {
    bool good =
        !certname.empty() && certname[0] != '.' && certname[0] != '-' && IsText(certname) &&
        std::none_of(certname.begin(), certname.end(), [](char c) { return c == '/' || IsControl(c); });
    try {
        good = good && str::puny::Encode(certname).size() <= kMaxName;
    } catch (const vek_err::Error&) {
        good = false;
    }
    if (!good)
        throw Error(Code::kValue, "certname", certname, "\"" + certname + "\" is no name for a certificate");
}

void CheckDomain(const std::string& name, bool wildcard) {
    std::string ascii;
    try {
        ascii = str::puny::Encode(name);
    } catch (const vek_err::Error& error) {
        throw Error(Code::kValue, "domain", name, "\"" + name + "\" is no domain name: " + error.what());
    }
    if (wildcard) ascii = WithoutWildcard(ascii);
    if (!IsName(ascii)) throw Error(Code::kValue, "domain", name, "\"" + name + "\" is no domain name");
}

bool IsText(const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = CharacterLength(text, at);
        if (length == 0) return false;
        at += length;
    }
    return true;
}

void CheckText(const std::string& key, const std::string& text) {
    if (!IsText(text)) {
        throw Error(Code::kValue, key, "",
                    "the value of \"" + key + "\" holds characters that no answer can carry");
    }
}

std::string MakeText(const std::string& text) {
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = CharacterLength(text, at);
        result += length == 0 ? "\xef\xbf\xbd" : text.substr(at, length);
        at += std::max<std::size_t>(length, 1);
    }
    return result;
}

std::string Canonical(const std::string& name, const std::string& key) try {
    std::string canonical = str::Lower(str::puny::Encode(name));
    if (canonical.ends_with('.')) canonical.pop_back();
    return canonical;
} catch (const vek_err::Error& error) {
    throw Error(Code::kValue, key, name, error.what());
}

std::string WithoutWildcard(const std::string& name) {
    return name.starts_with("*.") ? name.substr(2) : name;
}

bool ZoneContains(const std::string& zone, const std::string& name) {
    return !zone.empty() && (name == zone || name.ends_with("." + zone));
}

std::vector<std::string> ZonesContaining(const std::vector<std::string>& zones, const std::string& name) {
    std::vector<std::string> containing;
    std::copy_if(zones.begin(), zones.end(), std::back_inserter(containing),
                 [&](const std::string& zone) { return ZoneContains(zone, name); });
    std::sort(containing.begin(), containing.end(),
              [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
    return containing;
}

}  // namespace zelvek::names
