#pragma once

#include <map>
#include <string>

#include "vek/client.h"

namespace zelvek::cli {

/// Asks the running service; root's process becomes one of the service's user before. Others ask a service
/// whose user owns the run directory, provided that nobody but root and that user can put a socket there.
/// Errors: Error: the service's own, of code kDenied for who may not connect, and of code kIo where the
/// service cannot be reached.
vek_client::Result Ask(const std::string& function, const std::map<std::string, std::string>& parameters);

}  // namespace zelvek::cli
