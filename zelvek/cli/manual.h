#pragma once

#include <string>

#include "zelvek/base/command_line.h"

/// Manual pages made of what the help says, for man(7).
namespace zelvek::cli {

/// zelvek(1): all commands with their options.
std::string CommandsPage(const CommandText& line);

/// zelvek.conf(5): the options that `serve` reads from files.
std::string OptionsPage(const CommandText& line);

}  // namespace zelvek::cli
