#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "zelvek/doctor/check.h"

/// What the service finds on its machine.
namespace zelvek::doctor {

/// Whether the programs that runs start can be found in PATH.
Check Tools(const std::vector<std::string>& programs);

/// A folder of the service's, and whether this process can write to it.
Check WritableFolder(const std::string& about, const std::filesystem::path& folder);

/// A file with secrets: that it is there, and that nobody but its user can read it.
Check SecretFile(const std::string& about, const std::filesystem::path& file);

/// The room on the disk of a folder.
Check Disk(const std::string& about, const std::filesystem::path& folder);

/// Whether something listens on this port of this machine. `help` is for where nothing does.
Check Listening(int port, const std::string& help);

/// The units of the service manager, where it is there.
Checks Units(const std::vector<std::string>& units);

}  // namespace zelvek::doctor
