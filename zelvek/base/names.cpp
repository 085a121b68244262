#include "zelvek/base/names.h"

#include <algorithm>

#include "vek/err.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/text.h"

namespace zelvek::names {

namespace {

constexpr std::size_t kMaxName = 253;
constexpr std::size_t kMaxFolder = 230;  // leaves room for what the name of an installation's folder adds
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

/// The length of the UTF-8 character at `at` that XML 1.0 allows; 0 for anything else.
std::size_t CharacterLength(const std::string& text, std::size_t at) {
    const auto character = CharacterAt(text, at);
    if (!character) return 0;
    const char32_t point = character->point;
    const bool allowed =
        point >= 0x20 ? point != 0xfffe && point != 0xffff : point == '\t' || point == '\n' || point == '\r';
    return allowed ? character->length : 0;
}

}  // namespace

void CheckUser(const std::string& user) {
    const bool good = !user.empty() && user.size() <= kMaxFolder && user[0] != '.' && user[0] != '-' &&
                      std::all_of(user.begin(), user.end(),
                                  [](char c) { return IsAlnum(c) || c == '.' || c == '_' || c == '-'; });
    if (!good) throw Error(Code::kValue, "user", user, "\"" + user + "\" is no user name");
}

void CheckCertname(const std::string& certname) try {
    if (certname.starts_with('-') || !IsText(certname)) {
        throw Error(Code::kValue, "\"" + Printable(certname) + "\" is no name for a certificate");
    }
    CertificateFolder(certname);
} catch (const Error& error) {
    throw Error(error.code(), "certname", certname, error.sentence());
}

std::string CertificateFolder(const std::string& certname) {
    std::string ascii;
    try {
        ascii = str::puny::Encode(certname);
    } catch (const vek_err::Error& error) {
        throw Error(Code::kValue, Printable(error.what()));
    }
    // A script that forgets its quotes would take a "*" in a path for a pattern.
    if (ascii.starts_with("*.")) ascii.replace(0, 1, "_wildcard");
    return FolderName("the certificate's name", ascii);
}

std::string ComparedFolder(const std::string& certname) { return str::Lower(CertificateFolder(certname)); }

std::string ComparedFolderIfAny(const std::string& certname) try {
    return ComparedFolder(certname);
} catch (const Error&) {
    return "";
}

std::string FolderName(const std::string& what, const std::string& name) {
    // A leading dot is for the folders of installations under way. A control character could make a log or a
    // listing show something else.
    const bool plain = name.find('/') == std::string::npos && IsPlain(name);
    const std::string named = what + " \"" + Printable(name) + "\"";
    if (name.empty() || name.front() == '.' || !plain)
        throw Error(Code::kValue, named + " cannot be a folder's name");
    if (name.size() > kMaxFolder) {
        throw Error(Code::kValue, named + " is too long for a folder's name: it has " +
                                      std::to_string(name.size()) + " bytes, " + std::to_string(kMaxFolder) +
                                      " are possible");
    }
    return name;
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
