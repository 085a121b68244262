#include "zelvek/base/text.h"

#include <algorithm>
#include <vector>

#include "vek/str.h"

namespace zelvek {
namespace {

constexpr std::size_t kLongestText = 300;
constexpr std::size_t kLongestOutput = 1000;
constexpr std::size_t kLines = 5;
constexpr char kUnprintable = '?';

bool ContinuesCharacter(char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; }

}  // namespace

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

std::string WithoutControls(std::string text, char replacement) {
    std::replace_if(text.begin(), text.end(), IsControl, replacement);
    return text;
}

std::string Printable(const std::string& text) {
    if (text.size() <= kLongestText) return WithoutControls(text, kUnprintable);
    std::size_t end = kLongestText;
    while (end > 0 && ContinuesCharacter(text[end])) --end;  // no half of a UTF-8 character
    return WithoutControls(text.substr(0, end), kUnprintable) + "...";
}

std::string LastLines(const std::string& output) {
    std::size_t begin = output.size() - std::min(output.size(), kLongestOutput);
    while (begin < output.size() && ContinuesCharacter(output[begin])) ++begin;
    const std::vector<std::string> lines = str::Split(output.substr(begin), "\n");
    std::string tail;
    for (std::size_t i = lines.size() - std::min(lines.size(), kLines); i < lines.size(); ++i) {
        str::inpl::Append(tail, WithoutControls(lines[i], kUnprintable), " ");
    }
    return tail;
}

}  // namespace zelvek
