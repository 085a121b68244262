#include "zelvek/panel/page_keys.h"

#include <charconv>

#include "zelvek/base/secret.h"

namespace zelvek::page_keys {

std::string Make(Transaction& transaction, page_sessions::Session session) {
    const std::string secret = secrets::Fresh();
    session.hash = secrets::HashOf(secret);
    return std::to_string(page_sessions::Add(transaction, session)) + "-" + secret;
}

std::optional<page_sessions::Session> Find(Transaction& transaction, page_sessions::Kind kind,
                                           const std::string& text) {
    long long number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end == text.data() + text.size() || *end != '-') return std::nullopt;
    auto found = page_sessions::Find(transaction, kind, number);
    const std::string hash = secrets::HashOf(std::string(end + 1, text.data() + text.size()));
    if (!found || !secrets::Same(found->hash, hash)) return std::nullopt;
    return found;
}

}  // namespace zelvek::page_keys
