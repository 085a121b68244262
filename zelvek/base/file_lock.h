#pragma once

#include <chrono>
#include <filesystem>
#include <string>

#include "zelvek/base/descriptor.h"

namespace zelvek {

/// A lock on a file that its owner alone can open: whoever can open a file, for reading too, can keep a lock
/// on it for ever. It has one holder at a time, in whatever process or thread, and is released when that
/// object is destroyed or its process ends, in whatever way.
class FileLock {
public:
    /// How long a killed process may still seem to have its lock: a child that it was just starting has it,
    /// too, until the child has become the program that it is to be.
    static constexpr std::chrono::milliseconds kAfterlife{500};

    /// Takes the lock, at once but for `kAfterlife`; makes the file (mode 0600) where it is missing. Errors:
    /// Error of code kBusy, with `taken` as its sentence, when somebody else has it; of code kIo, also for a
    /// file of another user and for one that others can open.
    FileLock(const std::filesystem::path& file, const std::string& taken);

    /// Waits until nobody else has the lock, at most so long. Errors: as the constructor's.
    static FileLock WaitFor(const std::filesystem::path& file, std::chrono::milliseconds limit);

private:
    explicit FileLock(Descriptor locked);

    Descriptor locked_;
};

}  // namespace zelvek
