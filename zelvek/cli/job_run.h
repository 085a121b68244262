#pragma once

#include "zelvek/base/command_line.h"

namespace zelvek::cli {

/// `job run`: the plug-in as a child of this process, its progress, and what came of it.
void AddJobRunCommand(Command& noun);

}  // namespace zelvek::cli
