#pragma once

#include "zelvek/base/command_line.h"

namespace zelvek {

/// Adds the command `serve` with its options.
void AddServeCommand(Command& root);

}  // namespace zelvek
