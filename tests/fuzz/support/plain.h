#pragma once

#include <regex.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// The plainest form of things that the sources do with more care, as what the targets compare with.
namespace plain {

bool IsSpace(char c);
std::string Trim(const std::string& text);

/// The text between line feeds; a last line feed ends a line and begins none.
std::vector<std::string> Lines(const std::string& text);

/// A POSIX regular expression, an extended one, over bytes. (The standard library's takes seconds to compile
/// in each source that uses it.)
class Pattern {
public:
    explicit Pattern(const std::string& text);
    ~Pattern();
    Pattern(const Pattern&) = delete;
    Pattern& operator=(const Pattern&) = delete;

    /// Where the first place begins that it fits, at `begin` or later; npos where there is none.
    std::size_t Find(const std::string& text, std::size_t begin = 0) const;

private:
    regex_t compiled_{};
};

/// Whether a text holds a control character of ASCII or of Unicode, or one that turns the direction of a
/// line.
bool HasControl(const std::string& text);

std::string Join(const std::vector<std::string>& parts, const std::string& separator);

std::string Base64Url(const std::string& bytes);

/// The bytes of base64 text with padding; every character has to belong to it.
std::string Base64Decode(const std::string& text);

std::string PercentDecode(const std::string& text);

/// The words of a command line as a POSIX shell takes it apart: blanks between words, quoting by '...' and
/// backslash.
std::vector<std::string> ShellWords(const std::string& command);

/// A value as the text of an element or of an attribute.
std::string XmlText(const std::string& value);

/// Whether the XPath library takes the value's quoted form: one of both quotes is joined from pieces, of
/// which it allows about a thousand.
bool FitsXPath(const std::string& value);

/// 32 bytes that tell texts apart, in place of a digest.
std::string Digest(const std::string& text);

}  // namespace plain
