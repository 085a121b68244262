#pragma once

#include <filesystem>
#include <string>

#include "zelvek/base/folder.h"

namespace zelvek::moving {

/// A folder beside the database for what lies open there while a backup is made or read, mode 0700: on the
/// database's disk, where keys lie already. Goes at the end; what a killed process has left goes with the
/// next one that is made.
class WorkFolder {
public:
    /// Errors: Error of code kIo.
    explicit WorkFolder(const std::filesystem::path& parent);
    ~WorkFolder();
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    const Folder& folder() const { return folder_; }
    std::filesystem::path operator/(const std::string& name) const { return folder_.path() / name; }

private:
    Folder parent_;
    std::string name_;
    Folder folder_;
};

}  // namespace zelvek::moving
