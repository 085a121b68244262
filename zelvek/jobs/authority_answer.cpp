#include "zelvek/jobs/authority_answer.h"

#include <algorithm>
#include <string_view>

#include "vek/str.h"
#include "zelvek/base/html_text.h"
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

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

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
    const std::string text = TextOfHtml(Cut(words, kMostText));
    answer.words = WithoutControls(Cut(text, kMostWords), '?');
    return answer;
}

}  // namespace zelvek
