#pragma once

#include <string>
#include <vector>

namespace zelvek::cli {

/// Aligned columns under their headings, one row a line. Control characters, which could come from anywhere,
/// are blanks.
std::string Table(const std::vector<std::string>& headings,
                  const std::vector<std::vector<std::string>>& rows);

}  // namespace zelvek::cli
