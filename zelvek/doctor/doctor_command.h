#pragma once

#include "zelvek/base/command_line.h"

namespace zelvek {

/// Adds the command `doctor`, which looks at everything that certificates need and says what to do.
void AddDoctorCommand(Command& root);

}  // namespace zelvek
