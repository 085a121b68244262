#pragma once

#include "zelvek/base/command_line.h"

namespace zelvek::cli {

/// `job list`: what needs attention first.
void AddJobListCommand(Command& noun);

}  // namespace zelvek::cli
