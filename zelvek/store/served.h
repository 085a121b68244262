#pragma once

#include <optional>
#include <string>

#include "zelvek/store/store.h"

/// What the web servers serve of the installed certificates, as somebody has seen who looked. Every function
/// works inside the caller's transaction.
namespace zelvek::served {

enum class State { kServed, kOlder, kUnreachable };

struct Served {
    State state = State::kUnreachable;
    std::string time = {};    // when somebody looked: a date-time
    std::string detail = {};  // for people to read
};

/// What was seen of a user's certificate with this folder (`Job::folder`), in place of what was seen before.
void Set(Transaction& transaction, const std::string& user, const std::string& folder, const Served& served);

/// What was seen last; nothing where nobody has looked.
std::optional<Served> Find(Transaction& transaction, const std::string& user, const std::string& folder);

/// The certificate is there no more.
void Forget(Transaction& transaction, const std::string& user, const std::string& folder);

}  // namespace zelvek::served
