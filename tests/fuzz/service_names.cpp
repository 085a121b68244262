// Names and texts from outside: what the service's checks let through can stand where it is put.
#include <functional>

#include "support/plain.h"
#include "support/target.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/base/text.h"
#include "zelvek/publishing/dns_record.h"

namespace {

constexpr const char* kNameCharacters = "abcdefghijklmnopqrstuvwxyz0123456789-_.";

/// Whether the check lets the text through; what it refuses is a "value".
bool Passes(const std::function<void()>& check) {
    try {
        check();
        return true;
    } catch (const zelvek::Error& error) {
        fuzz::HoldEqual(zelvek::Word(error.code()), "value", "what is refused is a value");
        return false;
    }
}

void HoldFolderName(const std::string& name) {
    fuzz::Hold(!name.empty() && name[0] != '.' && name[0] != '-',
               "a folder's name is neither hidden nor an option");
    fuzz::Hold(name.find('/') == std::string::npos && !plain::HasControl(name), "a folder's name is no path");
    fuzz::Hold(name.size() <= 230, "a folder's name is not too long");
}

void HoldDomain(const std::string& text, bool wildcard) {
    if (!Passes([&] { zelvek::names::CheckDomain(text, wildcard); })) return;
    const std::string name = zelvek::names::Canonical(text);
    const bool star = name.starts_with("*.");
    fuzz::Hold(!star || wildcard, "a wildcard passes where one is allowed");
    fuzz::Hold(name.substr(star ? 2 : 0).find_first_not_of(kNameCharacters) == std::string::npos,
               "a name has a name's characters");
    fuzz::HoldEqual(zelvek::names::Canonical(name), name, "the canonical form's form is itself");
    fuzz::Hold(Passes([&] { zelvek::names::CheckDomain(name, wildcard); }), "the canonical form passes, too");
    fuzz::Hold(
        zelvek::names::ZoneContains(name, "sub." + name) && !zelvek::names::ZoneContains("sub." + name, name),
        "a name lies below itself, not the other way round");
}

/// What DNS tools read between the quotes.
std::string Unquoted(const std::string& quoted) {
    fuzz::Hold(quoted.size() >= 2 && quoted.front() == '"' && quoted.back() == '"',
               "a value stands in quotes");
    std::string value;
    for (std::size_t i = 1; i + 1 < quoted.size(); ++i) {
        fuzz::Hold(quoted[i] != '"', "no quote ends a value early");
        if (quoted[i] == '\\') ++i;
        value += quoted[i];
    }
    return value;
}

void HoldRecord(const std::string& zone, const std::string& name, const std::string& value) {
    if (!Passes([&] { zelvek::dns::CheckedRecord(zone, name, value); })) return;
    const auto record = zelvek::dns::CheckedRecord(zone, name, value);
    fuzz::Hold((record.zone + record.name).find_first_of(" \t\n;\"\\") == std::string::npos,
               "names are one word each");
    const std::string quoted = zelvek::dns::Quoted(record.value);
    fuzz::Hold(!plain::HasControl(quoted) && quoted.size() <= 2 * 255 + 2, "a value stays on its line");
    fuzz::HoldEqual(Unquoted(quoted), value, "a value is the one between the quotes");
}

void HoldPrintable(const std::string& text) {
    const std::string shown = zelvek::Printable(text);
    fuzz::Hold(!plain::HasControl(shown) && shown.size() <= 303,
               "what is shown is short and holds no control characters");
    const bool fit = zelvek::names::IsText(text) && !plain::HasControl(text) && text.size() <= 300;
    fuzz::Hold(!fit || shown == text, "what can be shown is shown as it is");
    const std::string tail = zelvek::LastLines(text);
    fuzz::Hold(!plain::HasControl(tail) && tail.size() <= 1000, "a tool's last lines are short and one line");
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    const std::string value = TakeText(input);
    const std::string zone = TakeText(input);
    const std::string name = TakeRest(input);
    for (const std::string& text : {value, zone, name}) {
        HoldDomain(text, true);
        HoldDomain(text, false);
        HoldPrintable(text);
        if (Passes([&] { zelvek::names::CheckUser(text); })) HoldFolderName(text);
        if (Passes([&] { zelvek::names::CheckCertname(text); }))
            HoldFolderName(zelvek::names::CertificateFolder(text));
    }
    HoldRecord(zone, name, value);
    HoldRecord(zone, name + "." + zone, value);
}
