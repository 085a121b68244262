#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace zelvek {

/// One character of a text: how many bytes it has, and which one it is.
struct Character {
    std::size_t length;
    char32_t point;
};

/// The UTF-8 character (RFC 3629) that begins at `at`; nothing where none does.
std::optional<Character> CharacterAt(const std::string& text, std::size_t at);

/// What could begin another line, steer a terminal, or have a text shown in another order than it is written
/// in: the control characters (U+0000 to U+001F, U+007F to U+009F), the separators of lines and paragraphs,
/// the marks of the writing direction.
bool IsControl(char32_t character);

/// `text` with `replacement` in the place of every control character, and of every byte that belongs to no
/// character.
std::string WithoutControls(const std::string& text, char replacement);

/// Whether `WithoutControls` has nothing to replace.
bool IsPlain(const std::string& text);

/// A text from outside made fit for an error message: what `WithoutControls` replaces becomes "?", and of a
/// long text the first 300 bytes remain.
std::string Printable(const std::string& text);

/// The last lines of a tool's output, at most so many and 1000 bytes, as `Printable` shows them, joined by
/// blanks.
std::string LastLines(const std::string& output, std::size_t most = 5);

}  // namespace zelvek
