// The ASCII form of any name: as many labels, each the sender's own or one that decodes to it.
#include <idn2.h>

#include <algorithm>
#include <memory>

#include "support/plain.h"
#include "support/target.h"
#include "vek/err.h"
#include "vek/str.h"

namespace {

bool IsAscii(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x80; });
}

std::vector<std::string> Labels(const std::string& name) {
    std::vector<std::string> labels(1);
    for (const char c : name) {
        if (c == '.')
            labels.emplace_back();
        else
            labels.back() += c;
    }
    return labels;
}

std::string Unicode(const std::string& label) {
    char* found = nullptr;
    const int status = idn2_to_unicode_8z8z(label.c_str(), &found, 0);
    const std::unique_ptr<char, decltype(&idn2_free)> owner(found, &idn2_free);
    fuzz::Hold(status == IDN2_OK, "an encoded label can be decoded");
    return found;
}

void HoldLabel(const std::string& encoded, const std::string& label) {
    if (IsAscii(label)) {
        fuzz::HoldEqual(encoded, label, "a label that is ASCII passes unchanged");
        return;
    }
    fuzz::Hold(!encoded.empty() && encoded.size() <= 63, "an encoded label has 1 to 63 characters");
    fuzz::Hold(encoded.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-_") == std::string::npos,
               "an encoded label has a name's characters");
    fuzz::HoldEqual(str::puny::Encode(Unicode(encoded)), encoded, "the decoded label has the same form");
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    const std::string name = TakeRest(input);
    std::string encoded;
    try {
        encoded = str::puny::Encode(name);
    } catch (const vek_err::Error& error) {
        Hold(!IsAscii(name), "an ASCII name has a form");
        HoldEqual(error.type(), "puny", "what cannot be encoded is an error of its own");
        return;
    }
    Hold(IsAscii(encoded), "the form is ASCII");
    HoldEqual(str::puny::Encode(encoded), encoded, "the form's form is itself");
    const auto labels = Labels(name);
    const auto forms = Labels(encoded);
    Hold(labels.size() == forms.size(), "no label is lost and none appears");
    for (std::size_t i = 0; i < labels.size(); ++i) HoldLabel(forms[i], labels[i]);
}
