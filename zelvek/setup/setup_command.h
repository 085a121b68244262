#pragma once

#include "zelvek/base/command_line.h"

namespace zelvek {

/// Adds the command that takes a server to its first certificate.
void AddSetupCommand(Command& root);

}  // namespace zelvek
