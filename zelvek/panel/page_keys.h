#pragma once

#include <optional>
#include <string>

#include "zelvek/store/page_sessions.h"
#include "zelvek/store/store.h"

/// What opens the service's page: "NUMBER-SECRET", of which the store has a hash of the secret.
namespace zelvek::page_keys {

constexpr int kLinkSeconds = 60;

/// Stores a new one and gives what opens it.
std::string Make(Transaction& transaction, page_sessions::Session session);

/// What the text opens, however old; nothing for a text that opens nothing.
std::optional<page_sessions::Session> Find(Transaction& transaction, page_sessions::Kind kind,
                                           const std::string& text);

}  // namespace zelvek::page_keys
