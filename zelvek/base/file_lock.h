#pragma once

#include <filesystem>
#include <string>

#include "zelvek/base/descriptor.h"

namespace zelvek {

/// A lock on a file or a folder. It has one holder at a time, in whatever process or thread, and is released
/// when that object is destroyed or its process ends, in whatever way.
class FileLock {
public:
    /// Takes the lock at once; makes the file where it is missing. Errors: Error of code kBusy, with `taken`
    /// as its sentence, when somebody else has it; of code kIo.
    FileLock(const std::filesystem::path& file, const std::string& taken);

    /// Waits until nobody else has the lock of this folder, which has to be there. Errors: Error of code kIo.
    static FileLock WaitFor(const std::filesystem::path& folder);

private:
    explicit FileLock(Descriptor locked);

    Descriptor locked_;
};

}  // namespace zelvek
