#pragma once

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

namespace zelvek {

/// Owns an open file, socket or other descriptor, and closes it at its end.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}

    /// Leaves errno as it was, so that the reason of a failure outlives what was open.
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        const Descriptor before(std::exchange(fd_, other.release()));
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    /// The descriptor's number; -1 where there is none.
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

    /// Leaves it open: whoever gets the number closes it.
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_ = -1;
};

/// As open(2); child processes do not get it. Errors: Error of code kIo.
Descriptor Open(const std::filesystem::path& path, int flags, mode_t mode = 0);

/// The content of a regular file of at most `most` bytes; nothing for anything else, be it a link, a pipe, or
/// something without end that somebody has put in a file's place.
std::optional<std::string> ReadSmallFile(const std::filesystem::path& file, std::size_t most);

}  // namespace zelvek
