#pragma once

#include <sys/socket.h>

#include <filesystem>
#include <optional>
#include <string>

#include "zelvek/base/process.h"

namespace zelvek {

/// Held by one process at a time as long as it lives, whatever way it ends.
class FileLock {
public:
    /// Errors: std::runtime_error, with `taken` as its text when another process holds it.
    FileLock(const std::filesystem::path& file, const std::string& taken);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

private:
    int fd_;
};

/// The directory of the local services' sockets: VEK_RUN_DIR, or /run/vek.
std::filesystem::path RunDirectory();

/// The socket that the service listens on, `zelvek.sock` in the run directory: for its own user alone.
class ServiceSocket {
public:
    /// Makes the directory where it is missing (mode 0700) and listens. A socket file that nobody answers on
    /// is replaced. Errors: std::runtime_error; another service in the same directory is one.
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
