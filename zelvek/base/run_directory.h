#pragma once

#include <filesystem>

namespace zelvek {

/// The directory of the local services' sockets: VEK_RUN_DIR, or /run/vek; without a "/" at its end.
std::filesystem::path RunDirectory();

/// Makes the directory where it is missing: of this process's user, with mode 0700, whatever the umask is.
/// Errors: Error of code kIo; a directory in which somebody else could put a socket is one: a symbolic link,
/// another user's, or one that its group or others may write.
void PrepareRunDirectory(const std::filesystem::path& directory);

}  // namespace zelvek
