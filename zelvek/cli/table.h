#pragma once

#include <string>
#include <vector>

namespace Json {
class Value;
}

namespace zelvek::cli {

/// Aligned columns under their headings, one row a line. Control characters, which could come from anywhere,
/// are blanks.
std::string Table(const std::vector<std::string>& headings,
                  const std::vector<std::vector<std::string>>& rows);

/// Prints one JSON text and a line feed.
void PrintJson(const Json::Value& value);

}  // namespace zelvek::cli
