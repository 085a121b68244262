#include "zelvek/base/form.h"

#include <algorithm>

namespace zelvek {
namespace {

/// The value of a hexadecimal digit, or -1.
int Digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

const std::string kNoValue;

}  // namespace

std::string FormDecode(const std::string& text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int high = i + 2 < text.size() ? Digit(text[i + 1]) : -1;
        const int low = high >= 0 ? Digit(text[i + 2]) : -1;
        if (text[i] == '%' && low >= 0) {
            decoded += static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            decoded += text[i] == '+' ? ' ' : text[i];
        }
    }
    return decoded;
}

Parameters::Parameters(const std::string& form) {
    for (std::size_t begin = 0; begin < form.size();) {
        const std::size_t end = std::min(form.find('&', begin), form.size());
        const std::string pair = form.substr(begin, end - begin);
        begin = end + 1;
        if (pair.empty()) continue;  // a query text may end with "&"

        const std::size_t equals = std::min(pair.find('='), pair.size());
        std::string key = FormDecode(pair.substr(0, equals));
        if (!index_.emplace(key, all_.size()).second) continue;
        all_.emplace_back(std::move(key), equals < pair.size() ? FormDecode(pair.substr(equals + 1)) : "");
    }
}

const std::string& Parameters::Get(const std::string& key) const {
    const auto found = index_.find(key);
    return found == index_.end() ? kNoValue : all_[found->second].second;
}

bool Parameters::Has(const std::string& key) const { return index_.count(key) != 0; }

}  // namespace zelvek
