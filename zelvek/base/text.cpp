#include "zelvek/base/text.h"

#include <algorithm>
#include <array>
#include <vector>

#include "vek/str.h"

namespace zelvek {
namespace {

constexpr std::size_t kLongestText = 300;
constexpr std::size_t kLongestOutput = 1000;
constexpr char kUnprintable = '?';

struct Range {
    char32_t first, last;
};

constexpr std::array kControls{Range{0x00, 0x1f},     Range{0x7f, 0x9f},     Range{0x061c, 0x061c},
                               Range{0x200e, 0x200f}, Range{0x2028, 0x202e}, Range{0x2066, 0x2069}};

bool ContinuesCharacter(char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; }

}  // namespace

std::optional<Character> CharacterAt(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    if (at >= text.size()) return std::nullopt;
    const unsigned lead = byte(at);
    if (lead < 0x80) return Character{1, lead};
    if (lead < 0xc2 || lead > 0xf4) return std::nullopt;
    const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    char32_t point = lead & (0xffU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xc0U) != 0x80U) return std::nullopt;
        point = point << 6 | (byte(at + i) & 0x3fU);
    }
    const bool overlong = (length == 3 && point < 0x800) || (length == 4 && point < 0x10000);
    const bool outside = (point >= 0xd800 && point <= 0xdfff) || point > 0x10ffff;
    if (overlong || outside) return std::nullopt;
    return Character{length, point};
}

bool IsControl(char32_t character) {
    return std::any_of(kControls.begin(), kControls.end(), [&](const Range& range) {
        return range.first <= character && character <= range.last;
    });
}

std::string WithoutControls(const std::string& text, char replacement) {
    std::string shown;
    for (std::size_t at = 0; at < text.size();) {
        const auto character = CharacterAt(text, at);
        const std::size_t length = character ? character->length : 1;
        const bool plain = character && !IsControl(character->point);
        shown += plain ? text.substr(at, length) : std::string(1, replacement);
        at += length;
    }
    return shown;
}

bool IsPlain(const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const auto character = CharacterAt(text, at);
        if (!character || IsControl(character->point)) return false;
        at += character->length;
    }
    return true;
}

std::string Printable(const std::string& text) {
    if (text.size() <= kLongestText) return WithoutControls(text, kUnprintable);
    std::size_t end = kLongestText;
    while (end > 0 && ContinuesCharacter(text[end])) --end;  // no half of a UTF-8 character
    return WithoutControls(text.substr(0, end), kUnprintable) + "...";
}

std::string LastLines(const std::string& output, std::size_t most) {
    std::size_t begin = output.size() - std::min(output.size(), kLongestOutput);
    while (begin < output.size() && ContinuesCharacter(output[begin])) ++begin;
    const std::vector<std::string> lines = str::Split(output.substr(begin), "\n");
    std::string tail;
    for (std::size_t i = lines.size() - std::min(lines.size(), most); i < lines.size(); ++i) {
        str::inpl::Append(tail, WithoutControls(lines[i], kUnprintable), " ");
    }
    return tail;
}

}  // namespace zelvek
