#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

/// Root asks the service of another user as that user: what a command makes (a run of the plug-in, its log)
/// must be that user's.
namespace zelvek {

/// Makes root's process one of the service's user, with that user's groups, for good; whose the service is,
/// a directory of its own says: its run directory, or its database's. Does nothing for any other user's
/// process, for root's own service, and where there is no such directory. Errors: Error of code kIo where
/// others than root could have changed where the directory's path leads, or where the user cannot be taken
/// on.
void BecomeServiceUser(const std::filesystem::path& directory);

/// Does `work` as the service's user and returns what it returns; this process stays what it is, so that it
/// can do for root what that user cannot. Where both are the same the work is done in this process, else in
/// a child. Errors: as `BecomeServiceUser`, and the work's, with code and sentence.
std::string AsServiceUser(const std::filesystem::path& directory, const std::function<std::string()>& work);

/// Whose the service is, as its directory says it; nobody where others than root could have changed where
/// the directory's path leads, and where there is no such directory.
std::optional<uid_t> ServiceUserOf(const std::filesystem::path& directory);

/// Refuses a process that may not use the path so, `mode` as access(2) has it; `deed` begins the sentence,
/// such as "zelvek backup". What is wrong else is not looked at. Errors: Error of code kDenied.
void RequireAccess(const std::filesystem::path& path, int mode, const std::string& deed);

/// Whether this process is root's, or of the user to whom the directory belongs, or nobody knows to whom it
/// does.
bool IsServiceUser(const std::filesystem::path& directory);

/// The owner of a directory. Errors: Error of code kIo when the path is not safe: the directory is a link, or
/// somebody else than root can change a directory or a link on the way to it.
uid_t OwnerOnSafePath(const std::filesystem::path& directory);

}  // namespace zelvek
