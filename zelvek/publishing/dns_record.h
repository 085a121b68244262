#pragma once

#include <set>
#include <string>
#include <vector>

namespace zelvek::dns {

/// A TXT record whose parts have been checked, so that they can stand in a line of a file or of nsupdate's
/// input.
struct Record {
    std::string zone;   // canonical form
    std::string name;   // canonical form
    std::string value;  // 1 to 255 printable ASCII characters: one character-string of RFC 1035

    bool IsInZone() const;
};

/// The canonical form (ASCII, lower case, no final dot) of a name, which may begin with "*.".
/// Errors: Error of code kValue for what is no name.
std::string CheckedName(std::string name);
std::set<std::string> CheckedNames(const std::vector<std::string>& names);

/// Errors: Error of code kValue for names that are none, and for a value that a record cannot have.
Record CheckedRecord(const std::string& zone, const std::string& name, const std::string& value);

/// As `CheckedRecord`; a name outside the zone is an error of code kValue, too.
Record CheckedNewRecord(const std::string& zone, const std::string& name, const std::string& value);

/// The value as zone files and DNS tools write it: in double quotes, with "\" before quotes and backslashes.
std::string Quoted(const std::string& value);

}  // namespace zelvek::dns
