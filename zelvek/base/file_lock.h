#pragma once

#include <filesystem>
#include <string>

namespace zelvek {

/// Held by one process at a time as long as it lives, whatever way it ends.
class FileLock {
public:
    /// Errors: Error, with `taken` as its text when another process holds it.
    FileLock(const std::filesystem::path& file, const std::string& taken);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

private:
    int fd_;
};

}  // namespace zelvek
