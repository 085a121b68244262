// The text tools: encodings give their bytes back, cutting and replacing lose nothing.
#include <algorithm>

#include "support/plain.h"
#include "support/target.h"
#include "vek/str.h"

namespace {

void HoldEncodings(const std::string& text) {
    fuzz::HoldEqual(plain::Base64Decode(str::base64::Encode(text)), text, "base64 gives its bytes back");
    fuzz::HoldEqual(str::hex::Decode(str::hex::Encode(text)), text,
                    "hexadecimal digits give their bytes back");
    const std::size_t digits = std::min(text.find_first_not_of("0123456789abcdefABCDEF"), text.size());
    const std::string bytes = str::hex::Decode(text);
    fuzz::Hold(bytes.size() == (digits + 1) / 2, "reading stops at what is no digit");
    const std::string even = digits % 2 == 0 ? text.substr(0, digits)
                                             : text.substr(0, digits - 1) + "0" + text.substr(digits - 1, 1);
    fuzz::HoldEqual(str::hex::Encode(bytes), str::Lower(even), "bytes are their digits");
}

void HoldWords(const std::string& text, const std::string& separator) {
    const bool found = !separator.empty() && text.find(separator) != std::string::npos;
    const std::string between = found ? separator : "";
    std::string rest = text;
    const std::string first = str::GetWord(rest, separator);
    fuzz::HoldEqual(first + between + rest, text, "the first word and the rest are the text");
    fuzz::Hold(separator.empty() || first.find(separator) == std::string::npos, "a word holds no separator");
    std::string before = text;
    const std::string last = str::RGetWord(before, separator);
    fuzz::HoldEqual(before + between + last, text, "the rest and the last word are the text");
    fuzz::Hold(separator.empty() || last.find(separator) == std::string::npos,
               "a last word holds no separator");
}

void HoldPieces(const std::string& text, const std::string& separator) {
    std::vector<std::string> expected;
    for (std::string rest = text; !rest.empty();) {
        const std::string word = str::GetWord(rest, separator);
        if (!word.empty()) expected.push_back(plain::Trim(word));
    }
    fuzz::Hold(str::Split(text, separator) == expected,
               "the pieces are the words that are not empty, trimmed");
}

void HoldReplacement(const std::string& text, const std::string& what, const std::string& with) {
    std::string expected = text;
    for (std::size_t at = 0; !what.empty() && (at = expected.find(what, at)) != std::string::npos;
         at += with.size())
        expected.replace(at, what.size(), with);
    fuzz::HoldEqual(str::Replace(text, what, with), expected,
                    "every occurrence is replaced, from left to right");
    std::string in_place = text;
    str::inpl::Replace(in_place, what, with);
    fuzz::HoldEqual(in_place, expected, "both forms are the same");
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    const std::string text = TakeText(input);
    const std::string what = TakeText(input);
    const std::string with = TakeText(input);
    HoldEncodings(text);
    HoldWords(text, what);
    HoldPieces(text, what);
    HoldReplacement(text, what, with);
    HoldEqual(str::Trim(text), plain::Trim(text), "white space goes from both ends");
    HoldEqual(str::Append(text, with, what), text.empty() || with.empty() ? text + with : text + what + with,
              "the separator stands between two parts only");
}
