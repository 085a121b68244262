#pragma once

#include <filesystem>

#include "zelvek/base/descriptor.h"

namespace zelvek {

/// A file for an SQLite database, which this process has for itself as long as this lives: two services would
/// do everything twice. The lock belongs to the file, so it holds by whatever path or link it is opened.
///
/// SQLite's own locks of a file go when the process closes any descriptor of it. So this one is opened before
/// the engine opens the file and closed after it, and nothing else opens the file meanwhile.
class DatabaseFile {
public:
    /// Opens the file, or makes it, and locks it; its user alone can read it from then on. A file that is no
    /// database of ours, or belongs to another user, stays as it is. Errors: Error of code kBusy when another
    /// process has it, of code kIo for all else; the sentence does not name the file.
    explicit DatabaseFile(const std::filesystem::path& file);

    /// Unlocks it, also where a child process has inherited the descriptor.
    ~DatabaseFile();
    DatabaseFile(const DatabaseFile&) = delete;
    DatabaseFile& operator=(const DatabaseFile&) = delete;

private:
    Descriptor opened_;
};

}  // namespace zelvek
