#include "vek/test.h"

namespace test {
namespace {

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool IsSchemeChar(char c) {
    return IsLetter(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
}

}  // namespace

bool Url(const std::string& text) {
    if (text.empty() || !IsLetter(text.front())) return false;
    std::size_t end = 1;
    while (end < text.size() && IsSchemeChar(text[end])) ++end;
    return text.compare(end, 3, "://") == 0 && text.size() > end + 3;
}

}  // namespace test
