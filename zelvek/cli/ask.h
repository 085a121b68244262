#pragma once

#include <map>
#include <string>

#include "vek/client.h"

namespace zelvek::cli {

/// Asks the running service; root's process becomes one of the service's user before. Errors: Error: the
/// service's own, and of code kIo where it cannot be reached.
vek_client::Result Ask(const std::string& function, const std::map<std::string, std::string>& parameters);

}  // namespace zelvek::cli
