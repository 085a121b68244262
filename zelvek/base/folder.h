#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "zelvek/base/descriptor.h"

namespace zelvek {

/// A folder that stays the one that was opened, whatever somebody does to its path meanwhile: what is in it
/// is reached from its descriptor, by names without "/", and no symbolic link there is followed. Errors of
/// everything here: Error of code kIo with path and reason.
class Folder {
public:
    /// Opens a folder that the administrator names: links in its path are followed.
    static Folder At(const std::filesystem::path& path);

    /// Opens a folder in this one.
    Folder Open(const std::string& name) const;

    /// Makes a folder in this one, with just this mode whatever the umask says; false where something of that
    /// name is there already.
    bool Make(const std::string& name, mode_t mode) const;

    /// Writes a file that must not be there yet, to disk. It has just this mode, and never a wider one,
    /// whatever the umask says.
    void WriteNew(const std::string& name, const std::string& content, mode_t mode) const;

    void MakeLink(const std::string& target, const std::string& name) const;

    /// In place of what has the name `to`.
    void Rename(const std::string& from, const std::string& to) const;

    /// Removes a file, a link, or a folder with the files in it; what is not there is no error.
    void Remove(const std::string& name) const;

    void SetMode(mode_t mode) const;

    /// Writes the folder itself to disk: what was created, renamed and removed in it is so after a crash,
    /// too.
    void Sync() const;

    /// As lstat(2) says it; st_mode is 0 for what is not there.
    struct stat Status(const std::string& name) const;

    /// The folder's own.
    struct stat Status() const;

    /// Where the link `name` points; empty for anything else.
    std::string LinkTarget(const std::string& name) const;

    /// The names of all that is in it, in no order.
    std::vector<std::string> Names() const;

    const std::filesystem::path& path() const { return path_; }
    int descriptor() const { return opened_.get(); }

private:
    Folder(std::filesystem::path path, Descriptor opened)
        : path_(std::move(path)), opened_(std::move(opened)) {}

    std::filesystem::path path_;  // for people to read
    Descriptor opened_;
};

/// Makes the folder and those above it that are missing, each with just this mode whatever the umask says.
/// Errors: Error of code kIo; something there that is no folder is one.
void MakeFolders(const std::filesystem::path& path, mode_t mode);

}  // namespace zelvek
