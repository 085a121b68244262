#pragma once

#include <string>

namespace zelvek {

/// Writes one line of the service's log to standard error. Line feeds and other control characters of `text`,
/// which may come from anywhere, become blanks: nobody can write a line of their own.
void Log(const std::string& text);

}  // namespace zelvek
