#include "zelvek/publishing/dns_record.h"

#include <algorithm>

#include "zelvek/base/error.h"
#include "zelvek/base/names.h"

namespace zelvek::dns {
namespace {

constexpr std::size_t kLongestValue = 255;

bool IsPrintableAscii(char c) { return c >= 0x20 && c <= 0x7e; }

}  // namespace

std::string CheckedName(std::string name) {
    if (name.ends_with('.')) name.pop_back();
    names::CheckDomain(name, true);
    return names::Canonical(name);
}

std::set<std::string> CheckedNames(const std::vector<std::string>& names) {
    std::set<std::string> checked;
    for (const std::string& name : names) checked.insert(CheckedName(name));
    return checked;
}

bool Record::IsInZone() const { return names::ZoneContains(zone, name); }

Record CheckedRecord(const std::string& zone, const std::string& name, const std::string& value) {
    if (value.empty() || value.size() > kLongestValue ||
        !std::all_of(value.begin(), value.end(), IsPrintableAscii)) {
        throw Error(Code::kValue, "the value of a TXT record has 1 to 255 printable ASCII characters");
    }
    return {CheckedName(zone), CheckedName(name), value};
}

Record CheckedNewRecord(const std::string& zone, const std::string& name, const std::string& value) {
    Record record = CheckedRecord(zone, name, value);
    if (!record.IsInZone()) {
        throw Error(Code::kValue, record.name + " does not lie in the zone " + record.zone);
    }
    return record;
}

std::string Quoted(const std::string& value) {
    std::string quoted = "\"";
    for (const char c : value) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + "\"";
}

}  // namespace zelvek::dns
