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
    /// Opens the file, or makes it, and locks it. A file that is no database, or belongs to another user,
    /// stays as it is. Errors: Error of code kBusy when another process has it, of code kIo for all else; the
    /// sentence does not name the file.
    explicit DatabaseFile(const std::filesystem::path& file);

    /// Its user alone can read it from then on. Errors: Error of code kIo.
    void MakePrivate() const;

    /// Errors: Error of code kIo where somebody has removed the file: whatever is written is lost at the end.
    void CheckIsThere() const;

    /// Unlocks it, also where a child process has inherited the descriptor.
    ~DatabaseFile();
    DatabaseFile(const DatabaseFile&) = delete;
    DatabaseFile& operator=(const DatabaseFile&) = delete;

private:
    std::filesystem::path path_;
    Descriptor opened_;
};

}  // namespace zelvek
