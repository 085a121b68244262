#pragma once

#include <unistd.h>

#include <utility>

namespace vek_proc {

/// A file descriptor that is closed with its owner.
class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() { Close(); }
    Fd(Fd&& other) noexcept : fd_(other.Release()) {}
    Fd& operator=(Fd&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }

    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }
    int Release() { return std::exchange(fd_, -1); }
    void Close() {
        if (fd_ >= 0) close(Release());
    }

private:
    int fd_ = -1;
};

}  // namespace vek_proc
