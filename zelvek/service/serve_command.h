#pragma once

#include "zelvek/base/command_line.h"

namespace zelvek {

/// Adds the command `serve` with its options.
void AddServeCommand(Command& root);

/// Adds the commands about the options that `serve` reads from files.
void AddConfigCommands(Command& root);

}  // namespace zelvek
