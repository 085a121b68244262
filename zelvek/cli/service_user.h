#pragma once

#include <sys/types.h>

#include <filesystem>

/// Root asks the service of another user as that user: the service answers nobody else, and what a command
/// makes (a run of the plug-in, its log) must be that user's.
namespace zelvek::cli {

/// Makes root's process one of the service's user, with that user's groups, for good; whose the service is,
/// its run directory says. Does nothing for any other user's process, for root's own service, and where there
/// is no such directory. Errors: Error of code kIo where others than root could have changed where the
/// directory's path leads, or where the user cannot be taken on.
void BecomeServiceUser(const std::filesystem::path& run_directory);

/// The owner of a directory. Errors: Error of code kIo when the path is not safe: the directory is a link, or
/// somebody else than root can change a directory or a link on the way to it.
uid_t OwnerOnSafePath(const std::filesystem::path& directory);

}  // namespace zelvek::cli
