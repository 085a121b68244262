#include "zelvek/jobs/authority_answer.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "vek/str.h"
#include "zelvek/base/text.h"
#include "zelvek/jobs/advice.h"

namespace zelvek {

namespace {

// The two ends of what the program writes between a refusal's code and its words.
constexpr std::string_view kBeforeCode = "<p><b>Return code:</b> ";
constexpr std::string_view kBeforeWords = "</p></br><p><b>Details:</b> ";

constexpr std::string_view kType = "urn:ietf:params:acme:error:";
constexpr std::size_t kMostWords = 200;   // bytes
constexpr std::size_t kMostText = 16384;  // bytes of a page that are looked at
constexpr std::size_t kLongestReference = 10;

struct Reference {
    std::string_view name;
    char character;
};
constexpr std::array kReferences{Reference{"lt", '<'},   Reference{"gt", '>'},    Reference{"amp", '&'},
                                 Reference{"quot", '"'}, Reference{"apos", '\''}, Reference{"nbsp", ' '},
                                 Reference{"#39", '\''}, Reference{"#34", '"'}};

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// The text of a page, read from its beginning to its end, once.
class Page {
public:
    explicit Page(std::string text) : text_(std::move(text)), lower_(str::Lower(text_)) {}

    std::string Text() {
        while (at_ < text_.size()) {
            if (text_[at_] == '<' && SkipTag()) continue;
            if (text_[at_] == '&' && TakeReference()) continue;
            Add(text_[at_++]);
        }
        return str::Trim(out_);
    }

private:
    void Add(char c) {
        if (IsSpace(c)) c = ' ';
        if (c != ' ' || (!out_.empty() && out_.back() != ' ')) out_ += c;
    }

    /// "<" begins a tag where a name, "/", "!" or "?" follows and it ends at all; else it is a character.
    bool SkipTag() {
        const char next = at_ + 1 < text_.size() ? text_[at_ + 1] : ' ';
        if (!IsLetter(next) && next != '/' && next != '!' && next != '?') return false;
        if (lower_.compare(at_, 4, "<!--") == 0) return SkipTo("-->");
        for (const std::string_view element : {"script", "style"}) {
            if (lower_.compare(at_ + 1, element.size(), element) == 0)
                return SkipTo("</" + std::string(element)) || SkipTo(">");
        }
        return SkipTo(">");
    }

    /// A page that lacks the end once lacks it everywhere after that: no end is looked for in vain twice.
    bool SkipTo(const std::string& end) {
        if (std::find(missing_.begin(), missing_.end(), end) != missing_.end()) return false;
        const std::size_t found = lower_.find(end, at_ + 1);
        if (found == std::string::npos) {
            missing_.push_back(end);
            return false;
        }
        at_ = found + end.size();
        if (end.front() == '<') at_ = std::min(lower_.find('>', at_), lower_.size() - 1) + 1;
        Add(' ');
        return true;
    }

    bool TakeReference() {
        const std::size_t end = lower_.find(';', at_);
        if (end == std::string::npos || end - at_ > kLongestReference) return false;
        const std::string_view name = std::string_view(lower_).substr(at_ + 1, end - at_ - 1);
        for (const Reference& reference : kReferences) {
            if (name != reference.name) continue;
            Add(reference.character);
            at_ = end + 1;
            return true;
        }
        return false;
    }

    std::string text_, lower_, out_;
    std::vector<std::string> missing_;
    std::size_t at_ = 0;
};

std::string Cut(const std::string& text, std::size_t most) {
    if (text.size() <= most) return text;
    std::size_t end = most;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0U) == 0x80U) --end;
    return text.substr(0, end) + "...";
}

/// Some authorities begin their words with the problem's type.
std::string TypeIn(const std::string& words) {
    const std::size_t found = words.find(kType);
    if (found == std::string::npos) return "";
    const std::size_t begin = found + kType.size();
    const auto end =
        std::find_if_not(words.begin() + static_cast<std::ptrdiff_t>(begin), words.end(), IsLetter);
    const std::string type(words.begin() + static_cast<std::ptrdiff_t>(begin), end);
    return IsProblemType(type) ? type : "";
}

}  // namespace

std::string WithoutMarkup(const std::string& text) { return Page(Cut(text, kMostText)).Text(); }

int ReturnCode(const std::string& detail) {
    return detail.starts_with(kBeforeCode) ? str::Int(detail.substr(kBeforeCode.size())) : 0;
}

AuthorityAnswer ReadAnswer(const history::Event& event) {
    AuthorityAnswer answer;
    std::string words = event.detail;
    if (words.starts_with(kBeforeCode)) {
        answer.code = ReturnCode(words);
        const std::size_t found = words.find(kBeforeWords);
        words = found == std::string::npos ? "" : words.substr(found + kBeforeWords.size());
        answer.type = TypeIn(words);
    }
    const std::string text = WithoutMarkup(words);
    answer.words = WithoutControls(Cut(text, kMostWords), '?');
    return answer;
}

}  // namespace zelvek
