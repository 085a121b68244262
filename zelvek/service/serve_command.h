#pragma once

#include <functional>
#include <string>

#include "zelvek/base/command_line.h"
#include "zelvek/service/serve.h"

namespace zelvek {

/// Adds the command `serve` with its options.
void AddServeCommand(Command& root);

/// Reads the options of a file as `serve` does, so that everybody says the same of it, and returns what `use`
/// returns of them. A mistake in the file is told with its line; the status is `kUsage` then, and that of a
/// failed command where `use` throws.
int WithServeOptions(const std::string& file, const std::function<int(const ServeOptions&)>& use);

/// Adds the commands about the options that `serve` reads from files.
void AddConfigCommands(Command& root);

}  // namespace zelvek
