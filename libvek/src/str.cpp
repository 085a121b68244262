#include "vek/str.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace str {
namespace {

constexpr char kSpaces[] = " \t\n\r\f\v";

bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Where `separator` begins, seen from the front or the back. An empty one is nowhere: it would cut off an
// empty word again and again.
std::size_t Find(const std::string& text, const std::string& separator) {
    return separator.empty() ? std::string::npos : text.find(separator);
}

std::size_t RFind(const std::string& text, const std::string& separator) {
    return separator.empty() ? std::string::npos : text.rfind(separator);
}

}  // namespace

std::string Str(long value) { return std::to_string(value); }

int Int(const std::string& text) {
    using Limits = std::numeric_limits<int>;
    std::size_t at = 0;
    while (at < text.size() && IsSpace(text[at])) ++at;
    const bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;
    std::int64_t value = 0;
    for (; at < text.size() && IsDigit(text[at]) && value <= Limits::max(); ++at)
        value = value * 10 + (text[at] - '0');
    if (negative) value = -value;
    return static_cast<int>(std::clamp<std::int64_t>(value, Limits::min(), Limits::max()));
}

std::string Trim(const std::string& text) {
    const auto first = text.find_first_not_of(kSpaces);
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(kSpaces) - first + 1);
}

std::string Lower(const std::string& text) {
    std::string lower = text;
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return lower;
}

std::string GetWord(std::string& source, char separator) {
    return GetWord(source, std::string(1, separator));
}

std::string GetWord(std::string& source, const std::string& separator) {
    const auto at = Find(source, separator);
    std::string word = source.substr(0, at);
    source.erase(0, at == std::string::npos ? at : at + separator.size());
    return word;
}

std::string RGetWord(std::string& source, char separator) {
    return RGetWord(source, std::string(1, separator));
}

std::string RGetWord(std::string& source, const std::string& separator) {
    const auto at = RFind(source, separator);
    std::string word = at == std::string::npos ? source : source.substr(at + separator.size());
    source.erase(at == std::string::npos ? 0 : at);
    return word;
}

std::vector<std::string> Split(const std::string& source, const std::string& separator) {
    std::vector<std::string> pieces;
    for (std::size_t begin = 0; begin < source.size();) {
        const auto found = separator.empty() ? std::string::npos : source.find(separator, begin);
        const auto end = std::min(found, source.size());
        if (end > begin) pieces.push_back(Trim(source.substr(begin, end - begin)));
        begin = end + separator.size();
    }
    return pieces;
}

std::string Append(const std::string& first, const std::string& second, const std::string& separator) {
    std::string joined = first;
    inpl::Append(joined, second, separator);
    return joined;
}

std::string Replace(const std::string& text, const std::string& what, const std::string& with) {
    if (what.empty()) return text;
    std::string result;
    std::size_t begin = 0;
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, begin)) {
        result.append(text, begin, at - begin).append(with);
        begin = at + what.size();
    }
    return result.append(text, begin);
}

std::string Replace(const std::string& text, const std::map<std::string, std::string>& table) {
    std::string result = text;
    for (const auto& [what, with] : table) inpl::Replace(result, what, with);
    return result;
}

namespace inpl {

void Trim(std::string& text) { text = str::Trim(text); }

void Append(std::string& text, const std::string& part, const std::string& separator) {
    if (part.empty()) return;
    if (!text.empty()) text += separator;
    text += part;
}

void Replace(std::string& text, const std::string& what, const std::string& with) {
    text = str::Replace(text, what, with);
}

}  // namespace inpl
}  // namespace str
