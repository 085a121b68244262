#pragma once

#include <functional>
#include <string>

#include "zelvek/base/command_line.h"
#include "zelvek/moving/backup.h"

namespace zelvek::moving {

/// Reads places from the service's file of options. Returns kSuccess; any other status has been explained on
/// standard error by then.
using ReadPlaces = std::function<int(const std::string& file, Places& places)>;

/// Adds the commands `backup` and `restore`.
void AddCommands(Command& root, const ReadPlaces& read_places);

/// Adds the commands about stores as they are.
void AddStoreCommands(Command& root);

}  // namespace zelvek::moving
