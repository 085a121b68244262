#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

/// Files that readers see whole or not at all, and that a crash of the machine leaves whole.
/// Errors of everything here: Error of code kIo with path and reason.
namespace zelvek::durable {

/// Writes a file that must not be there yet. It has exactly this mode, and never a wider one, whatever the
/// umask says.
void WriteNew(const std::filesystem::path& file, const std::string& content, mode_t mode);

/// Writes a file in place of the file or symbolic link that stands there, by renaming a new one over it.
/// While that is written it stands beside it under a name that begins with ".new-".
void Replace(const std::filesystem::path& file, const std::string& content, mode_t mode);

/// Writes the folder itself to disk: what was created, renamed and removed in it is so after a crash, too.
void SyncFolder(const std::filesystem::path& folder);

}  // namespace zelvek::durable
