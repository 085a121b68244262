#pragma once

#include <sys/socket.h>

#include <filesystem>
#include <string>

#include "zelvek/base/descriptor.h"
#include "zelvek/base/file_lock.h"
#include "zelvek/base/process.h"

namespace zelvek {

/// The socket that the service listens on, `zelvek.sock` in the run directory: for its own user alone.
class ServiceSocket {
public:
    /// Prepares the directory and listens. A socket file that nobody answers on is replaced. Errors: Error;
    /// another service in the same directory is one, and a directory that somebody else can write.
    explicit ServiceSocket(const std::filesystem::path& directory);

    /// Removes the socket's file.
    ~ServiceSocket();
    ServiceSocket(const ServiceSocket&) = delete;
    ServiceSocket& operator=(const ServiceSocket&) = delete;

    /// Gives the listening socket to whoever serves on it, and closes it.
    int ReleaseListener() { return listener_.release(); }

    /// Removes the socket's file now: nobody new can connect, who has connected is still accepted.
    void Unlink();

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    FileLock lock_;
    Descriptor listener_;
};

/// Who is at the other end of a connection: user and process, as they were when it was made. Errors: Error of
/// code kIo.
ucred PeerOf(int connection);

/// The process at the other end. Errors: Error of code kProtocol when it belongs to another user than the
/// service, or has ended.
Process OwnProcess(const ucred& peer);

}  // namespace zelvek
