#pragma once

#include <string>

/// Advisory locks of a database, one of each kind for each schema: two panels in one database do not meet.
namespace zelvek::postgresql {

inline constexpr int kTransactionLock = 0x7a656c01;  // "zel", held by whoever is in a transaction
inline constexpr int kServiceLock = 0x7a656c02;      // held by the session of the one service

/// The arguments of the server's functions for such locks.
inline std::string Lock(int kind) { return std::to_string(kind) + ", hashtext(current_schema())"; }

}  // namespace zelvek::postgresql
