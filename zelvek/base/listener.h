#pragma once

#include <string>

#include "zelvek/base/descriptor.h"

namespace zelvek {

/// A socket that listens. `address` is "127.0.0.1:80", "[::1]:80" or ":80" (every address). Errors: Error of
/// code kValue (address), kIo (cannot listen).
Descriptor Listen(const std::string& address);

/// A unix socket that listens; a socket's file that nobody answers on is replaced. Errors: Error of code kIo.
Descriptor ListenOnSocket(const std::string& path, unsigned mode);

/// Whether nobody but this machine can reach `address`, which is one that `Listen` takes. Errors: Error of
/// code kValue.
bool IsLoopback(const std::string& address);

}  // namespace zelvek
