#pragma once

#include <sys/socket.h>

#include <filesystem>
#include <optional>
#include <string>

#include "zelvek/base/file_lock.h"
#include "zelvek/base/process.h"

namespace zelvek {

/// The socket that the service listens on, `zelvek.sock` in the run directory: for its own user alone.
class ServiceSocket {
public:
    /// Makes the directory where it is missing (mode 0700) and listens. A socket file that nobody answers on
    /// is replaced. Errors: Error; another service in the same directory is one.
    explicit ServiceSocket(const std::filesystem::path& directory);

    /// Removes the socket's file; does not close the descriptor, which belongs to the HTTP server.
    ~ServiceSocket();
    ServiceSocket(const ServiceSocket&) = delete;
    ServiceSocket& operator=(const ServiceSocket&) = delete;

    int fd() const { return fd_; }

    /// Removes the file now: nobody connects any more, those who wait to be accepted still are.
    void Unlink();

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    FileLock lock_;
    int fd_ = -1;
};

/// Who is at the other end: nothing when it is another user's process, or one that cannot be told apart from
/// others.
std::optional<Process> Peer(int connection);

}  // namespace zelvek
