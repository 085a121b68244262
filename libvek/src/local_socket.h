#pragma once

#include <chrono>
#include <string>

#include "fd.h"

namespace vek_client {

/// A connection to the service that listens on the socket `path`. A refused connection or a missing socket is
/// tried again for `patience`, because a service that restarts has neither for a moment. Errors:
/// vek_err::Error("client", "connect", path and reason).
Fd Connect(const std::string& path, std::chrono::milliseconds patience);

}  // namespace vek_client
