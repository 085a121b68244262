#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

/// Text utilities. "White space" is blank, tab, line feed, carriage return, form feed and vertical tab
/// throughout; letters are ASCII letters. Every text may hold any byte, NUL included.
namespace str {

/// Decimal text of a number.
std::string Str(long value);

/// The number at the start of `text`: leading white space, an optional sign, decimal digits; the rest is not
/// looked at. No digits give 0; a number beyond 32 bits gives the nearest 32-bit value.
int Int(const std::string& text);

std::string Trim(const std::string& text);
std::string Lower(const std::string& text);

/// Cuts the first word off `source`: returns the text before the first separator and removes it, with the
/// separator, from `source`. Without a separator the whole text is returned and `source` is left empty.
std::string GetWord(std::string& source, char separator);
std::string GetWord(std::string& source, const std::string& separator);

/// As `GetWord` from the other end: returns the text after the last separator.
std::string RGetWord(std::string& source, char separator);
std::string RGetWord(std::string& source, const std::string& separator);

/// The pieces between separators, in order; empty pieces are skipped first and the others trimmed then, so
/// that a piece of other white space alone becomes an empty text.
std::vector<std::string> Split(const std::string& source, const std::string& separator);

/// `first` and `second` with `separator` between them; an empty part adds nothing, no separator either.
std::string Append(const std::string& first, const std::string& second, const std::string& separator);

/// Replaces every occurrence of `what` (nothing when it is empty), from left to right; what was put in is not
/// searched again.
std::string Replace(const std::string& text, const std::string& what, const std::string& with);

/// Replaces every occurrence of each key by its value, key after key in their order.
std::string Replace(const std::string& text, const std::map<std::string, std::string>& table);

/// `count` bytes from the system's random source. Errors: vek_err::Error("str", "random", reason).
std::string Random(std::size_t count);

/// The forms that change their argument in place.
namespace inpl {
void Trim(std::string& text);
void Append(std::string& text, const std::string& part, const std::string& separator);
void Replace(std::string& text, const std::string& what, const std::string& with);
}  // namespace inpl

namespace base64 {
/// Standard base64 (RFC 4648 section 4) with padding, without line breaks.
std::string Encode(const std::string& bytes);
}  // namespace base64

namespace hex {
/// Two lower-case digits a byte.
std::string Encode(const std::string& bytes);

/// Bytes of hexadecimal digits in either case. With an odd count the last digit is a byte of its own. Reading
/// stops at the first character that is no digit.
std::string Decode(const std::string& digits);
}  // namespace hex

namespace puny {
/// The IDNA2008 ASCII form of a domain name in UTF-8, label by label; a label that is ASCII already ("*",
/// "_acme-challenge", an empty one) passes unchanged.
/// Errors: vek_err::Error("str", "puny", name with the reason) where a label has no such form; never a
/// shorter name.
std::string Encode(const std::string& name);
}  // namespace puny

}  // namespace str
