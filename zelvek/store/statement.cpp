#include "zelvek/store/statement.h"

#include <algorithm>

#include "zelvek/base/text.h"
#include "zelvek/store/connection.h"

namespace zelvek {

namespace {

constexpr const char* kReplacement = "\xef\xbf\xbd";  // U+FFFD

bool IsPlainAscii(const std::string& text) {
    constexpr unsigned char kFirstOther = 0x80;
    return std::all_of(text.begin(), text.end(), [](unsigned char c) { return c != 0 && c < kFirstOther; });
}

}  // namespace

std::string StoredText(const std::string& text) {
    std::string fit;
    fit.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const auto character = CharacterAt(text, at);
        const bool kept = character && character->point != 0;
        kept ? fit.append(text, at, character->length) : fit.append(kReplacement);
        at += character ? character->length : 1;
    }
    return fit;
}

Statement::Statement(Connection& connection, const std::string& sql) : use_(connection.Use(sql)) {}

Statement::~Statement() = default;

Statement& Statement::With(const std::string& value) {
    IsPlainAscii(value) ? use_->Give(value) : use_->Give(StoredText(value));
    return *this;
}

Statement& Statement::With(long long value) {
    use_->Give(value);
    return *this;
}

Statement& Statement::WithOptional(const std::optional<std::string>& value) {
    if (value) return With(*value);
    use_->GiveNothing();
    return *this;
}

Statement& Statement::IntoOptional(std::optional<std::string>& column) {
    use_->Receive(&column);
    return *this;
}

Statement& Statement::Into(std::string& column) {
    use_->Receive(&column);
    return *this;
}

Statement& Statement::Into(long long& column) {
    use_->Receive(&column);
    return *this;
}

Statement& Statement::Into(int& column) {
    use_->Receive(&column);
    return *this;
}

Statement& Statement::Into(bool& column) {
    use_->Receive(&column);
    return *this;
}

bool Statement::Next() { return use_->Next(); }

std::vector<int> Statement::Numbers() {
    std::vector<int> numbers;
    int number = 0;
    Into(number);
    while (Next()) numbers.push_back(number);
    return numbers;
}

long long Statement::Run() { return use_->Run(); }

}  // namespace zelvek
