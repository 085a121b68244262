#pragma once

#include <string>

namespace zelvek::testing {

/// How often `part` stands in `text`.
inline int Count(const std::string& text, const std::string& part) {
    int count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
    return count;
}

}  // namespace zelvek::testing
