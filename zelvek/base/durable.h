#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

/// Files that readers see whole or not at all, and that a crash of the machine leaves whole.
/// Errors of everything here: Error of code kIo with path and reason.
namespace zelvek::durable {

/// Throws the error "cannot <what> <path>: <reason of errno>".
[[noreturn]] void Fail(const std::string& what, const std::filesystem::path& path);

/// An open file or folder, closed at the end; never handed on to child processes.
class Descriptor {
public:
    /// As open(2).
    Descriptor(const std::filesystem::path& path, int flags, mode_t mode = 0);
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }

private:
    int fd_;
};

/// Writes a file that must not be there yet. It has exactly this mode, and never a wider one, whatever the
/// umask says.
void WriteNew(const std::filesystem::path& file, const std::string& content, mode_t mode);

/// Writes a file in place of the file or symbolic link that stands there, by renaming a new one over it.
/// While that is written it stands beside it under a name that begins with ".new-".
void Replace(const std::filesystem::path& file, const std::string& content, mode_t mode);

/// Makes lasting what was created, renamed and removed in the folder.
void SyncFolder(const std::filesystem::path& folder);

}  // namespace zelvek::durable
