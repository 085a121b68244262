#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace zelvek::cli {

constexpr std::size_t kAnyWidth = 0;

/// Aligned columns under their headings, one row a line. Control characters, which could come from anywhere,
/// are blanks. With a `width` no line has more characters than that, provided that it leaves some for each
/// column: the last column goes on in further lines, the widest of the others are shortened; "…" stands where
/// something is left out.
std::string Table(const std::vector<std::string>& headings, const std::vector<std::vector<std::string>>& rows,
                  std::size_t width = kAnyWidth);

/// The width that tables on standard output have: a terminal's, at most 100; any where programs read it.
std::size_t OutputWidth();

/// A table for standard output.
std::string OutputTable(const std::vector<std::string>& headings,
                        const std::vector<std::vector<std::string>>& rows);

/// A text for standard output, in as many lines as it needs there.
std::string OutputText(const std::string& text);

}  // namespace zelvek::cli
