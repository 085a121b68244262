#pragma once

#include <string>

namespace test {

/// True for "scheme://rest": a scheme of RFC 3986 (a letter, then letters, digits, "+", "-", ".") and a
/// non-empty rest.
bool Url(const std::string& text);

}  // namespace test
