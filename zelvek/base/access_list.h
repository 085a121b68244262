#pragma once

#include <sys/types.h>

#include <filesystem>
#include <vector>

namespace zelvek {

/// Lets members of these groups use a file or folder of this process's user, by an access list: a file has
/// one group, which only root can choose freely. `rights` are those of one digit of a mode, such as 6. What
/// an access list said before holds no more; everybody else keeps what the mode gives to all, and the file's
/// own group gets no more than that. Without groups the path is left without a list. `path` is no link.
/// Errors: Error of code kIo, among them a file system that knows no such lists.
void LetGroups(const std::filesystem::path& path, unsigned rights, std::vector<gid_t> groups);

/// Whether there is an access list beside the mode, whose second digit bounds the list then.
bool HasAccessList(const std::filesystem::path& path);

}  // namespace zelvek
