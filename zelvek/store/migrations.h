#pragma once

#include <vector>

namespace zelvek {

/// What brings a database from version N (`PRAGMA user_version`) to N + 1, for every N from 0. An entry that
/// was released is never changed: what changes afterwards is a further entry.
const std::vector<const char*>& Migrations();

}  // namespace zelvek
