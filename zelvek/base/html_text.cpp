#include "zelvek/base/html_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string_view>

#include "vek/str.h"
#include "zelvek/base/text.h"

namespace zelvek {
namespace {

constexpr std::string_view kWhite = " \t\r\n\f\v";
constexpr std::size_t kLongestReference = 10;  // "&#x10ffff;"

// Those of pages and of formatted texts; every other word in angle brackets is text.
constexpr std::array<std::string_view, 58> kElements{
    "a",      "abbr",  "address", "article", "aside",   "b",     "blockquote", "body",   "br",    "center",
    "code",   "dd",    "div",     "dl",      "dt",      "em",    "font",       "footer", "form",  "h1",
    "h2",     "h3",    "h4",      "h5",      "h6",      "head",  "header",     "hr",     "html",  "i",
    "iframe", "img",   "input",   "label",   "li",      "link",  "main",       "meta",   "nav",   "noscript",
    "ol",     "p",     "pre",     "script",  "section", "small", "span",       "strong", "style", "svg",
    "table",  "tbody", "td",      "th",      "title",   "tr",    "u",          "ul"};

struct Reference {
    std::string_view name, text;
};
constexpr std::array kReferences{Reference{"amp", "&"}, Reference{"apos", "'"}, Reference{"gt", ">"},
                                 Reference{"lt", "<"},  Reference{"nbsp", " "}, Reference{"quot", "\""}};

bool IsElement(const std::string& word) {
    return std::find(kElements.begin(), kElements.end(), word) != kElements.end();
}

std::string Utf8(unsigned point) {
    const auto tail = [&](unsigned shift) { return static_cast<char>(0x80U | (point >> shift & 0x3fU)); };
    if (point < 0x80) return {static_cast<char>(point)};
    if (point < 0x800) return {static_cast<char>(0xc0U | point >> 6U), tail(0)};
    if (point < 0x10000) return {static_cast<char>(0xe0U | point >> 12U), tail(6), tail(0)};
    return {static_cast<char>(0xf0U | point >> 18U), tail(12), tail(6), tail(0)};
}

/// The character of "#39" or "#x27"; nothing where there is none of that number.
std::optional<std::string> Numbered(std::string_view name) {
    const bool hex = name.starts_with("#x") || name.starts_with("#X");
    name.remove_prefix(hex ? 2 : 1);
    unsigned point = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), point, hex ? 16 : 10);
    if (error != std::errc() || end != name.data() + name.size() || point > 0x10ffff) return std::nullopt;
    std::string text = Utf8(point);
    if (!CharacterAt(text, 0)) return std::nullopt;
    return text;
}

std::optional<std::string> Referenced(std::string_view name) {
    if (name.starts_with('#')) return Numbered(name);
    for (const Reference& known : kReferences) {
        if (known.name == name) return std::string(known.text);
    }
    return std::nullopt;
}

/// Reads a text from its beginning to its end, once: what is looked for ahead is looked for again only beyond
/// the place where it was found.
class Reader {
public:
    explicit Reader(const std::string& html) : html_(html), lower_(str::Lower(html)) {}

    std::string Read() {
        while (at_ < html_.size()) {
            const char c = html_[at_];
            if (c == '<' && (SkipComment() || SkipTag())) continue;
            if (c == '&' && TakeReference()) continue;
            Put(html_[at_++]);
        }
        return shown_;
    }

private:
    /// The place of the next `text` (lower case) from `from` on; npos where there is none.
    struct Ahead {
        std::string text;
        std::size_t place = 0;
        bool known = false;
    };
    std::size_t Find(Ahead& ahead, std::size_t from) const {
        if (!ahead.known || ahead.place < from) ahead.place = lower_.find(ahead.text, from);
        ahead.known = true;
        return ahead.place;
    }

    /// Comments, and declarations such as "<!DOCTYPE html>".
    bool SkipComment() {
        const bool comment = html_.compare(at_, 4, "<!--") == 0;
        if (!comment && html_.compare(at_, 2, "<!") != 0) return false;
        const std::size_t end = comment ? Find(comment_end_, at_ + 4) : Find(tag_end_, at_);
        if (end == std::string::npos) return false;
        at_ = end + (comment ? 3 : 1);
        Break();
        return true;
    }

    bool SkipTag() {
        const bool closes = at_ + 1 < html_.size() && html_[at_ + 1] == '/';
        const std::size_t begin = at_ + (closes ? 2 : 1);
        std::size_t end = begin;
        while (end < html_.size() && end - begin < kLongestReference && IsAlnum(html_[end])) ++end;
        const std::string name = str::Lower(html_.substr(begin, end - begin));
        const bool ends = end < html_.size() && (kWhite.find(html_[end]) != std::string_view::npos ||
                                                 html_[end] == '>' || html_[end] == '/');
        if (!ends || !IsElement(name)) return false;
        const std::size_t close = Find(tag_end_, end);
        if (close == std::string::npos) return false;
        at_ = close + 1;
        if (!closes && name == "script") SkipTo(script_end_);
        if (!closes && name == "style") SkipTo(style_end_);
        Break();
        return true;
    }

    void SkipTo(Ahead& ahead) {
        const std::size_t end = Find(ahead, at_);
        if (end != std::string::npos) at_ = end;
    }

    bool TakeReference() {
        const std::size_t end = html_.substr(at_, kLongestReference).find(';');
        if (end == std::string::npos) return false;
        const auto text = Referenced(std::string_view(html_).substr(at_ + 1, end - 1));
        if (!text) return false;
        for (const char c : *text) Put(c);
        at_ += end + 1;
        return true;
    }

    void Put(char c) {
        if (kWhite.find(c) != std::string_view::npos) return Break();
        if (blank_ && !shown_.empty()) shown_ += ' ';
        blank_ = false;
        shown_ += c;
    }

    void Break() { blank_ = true; }

    static bool IsAlnum(char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    }

    const std::string& html_;
    std::string lower_;  // where ends are looked for
    std::size_t at_ = 0;
    std::string shown_;
    bool blank_ = false;
    Ahead tag_end_{">"};
    Ahead comment_end_{"-->"};
    Ahead script_end_{"</script"};
    Ahead style_end_{"</style"};
};

}  // namespace

std::string TextOfHtml(const std::string& html) { return Reader(html).Read(); }

}  // namespace zelvek
