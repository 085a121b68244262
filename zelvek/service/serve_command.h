#pragma once

#include <string>
#include <vector>

#include "zelvek/base/command_line.h"
#include "zelvek/service/serve.h"

namespace zelvek {

/// The options that `serve --config FILE` has, read as it reads them, so that everybody says the same of
/// them. Returns kSuccess; any other status has been explained on standard error by then. Errors: Error of
/// code kDenied where this process may not read the file.
int ReadServeOptions(const std::string& file, ServeOptions& options);

/// Adds the command `serve` with its options. `words` is the command line, program and all, which a running
/// service reads again with its files.
void AddServeCommand(Command& root, const std::vector<std::string>& words = {});

/// Adds the commands about the options that `serve` reads from files.
void AddConfigCommands(Command& root);

}  // namespace zelvek
