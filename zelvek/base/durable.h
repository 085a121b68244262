#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

/// Files that readers see whole or not at all, and that a crash of the machine leaves whole.
/// Errors of everything here: Error of code kIo with path and reason.
namespace zelvek::durable {

/// Writes a file in place of the file or symbolic link that stands there, by renaming a new one over it. It
/// has just this mode, and never a wider one, whatever the umask says. While it is written it stands beside
/// that place under a name that begins with ".new-".
void Replace(const std::filesystem::path& file, const std::string& content, mode_t mode);

/// Removes what a `Replace` that was killed has left in the folder. No `Replace` may be under way there.
void RemoveLeftovers(const std::filesystem::path& folder);

}  // namespace zelvek::durable
