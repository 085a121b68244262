// PEM texts from outside: read strictly, and what is read can be written and read again.
#include "support/plain.h"
#include "support/target.h"
#include "vek/str.h"
#include "zelvek/certificates/pem.h"

namespace {

std::string Written(const std::vector<zelvek::PemBlock>& blocks, const std::string& between,
                    const std::string& line_end) {
    std::string text;
    for (const auto& block : blocks) {
        text += "-----BEGIN " + block.label + "-----" + line_end;
        const std::string base64 = str::base64::Encode(block.der);
        for (std::size_t i = 0; i < base64.size(); i += 64) text += base64.substr(i, 64) + line_end;
        text += "-----END " + block.label + "-----" + between;
    }
    return text;
}

std::string WithoutSpace(const std::string& text) {
    std::string rest;
    for (const char c : text)
        if (!plain::IsSpace(c)) rest += c;
    return rest;
}

bool Equal(const std::vector<zelvek::PemBlock>& a, const std::vector<zelvek::PemBlock>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const auto& x, const auto& y) { return x.label == y.label && x.der == y.der; });
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    const std::string text = TakeRest(input);
    const auto blocks = zelvek::ReadPem(text);
    Hold(blocks || !plain::Trim(text).empty(), "white space is a text without blocks");
    if (!blocks) return;
    for (const auto& block : *blocks) {
        Hold(block.label.find("-----") == std::string::npos, "a label ends at the dashes");
        Hold(!block.der.empty(), "a block holds something");
    }
    const std::string written = Written(*blocks, "\n", "\n");
    Hold(WithoutSpace(text).size() == WithoutSpace(written).size(),
         "a text holds its blocks and nothing else");
    for (const std::string& again :
         {written, Written(*blocks, "\r\n\r\n", "\r\n"), Written(*blocks, "", "")}) {
        const auto read = zelvek::ReadPem(again);
        Hold(read && Equal(*read, *blocks), "what is written is read again");
    }
}
