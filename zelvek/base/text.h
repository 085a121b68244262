#pragma once

#include <string>

namespace zelvek {

/// Line ends, tabs, escapes: what could begin another line, or steer a terminal.
bool IsControl(char c);

/// `text` with `replacement` in the place of every control character.
std::string WithoutControls(std::string text, char replacement);

/// A text from outside made fit for an error message: control characters become "?", and of a long text the
/// first 300 bytes remain.
std::string Printable(const std::string& text);

/// The last lines of a tool's output, at most 5 and 1000 bytes, without control characters, joined by blanks.
std::string LastLines(const std::string& output);

}  // namespace zelvek
