#pragma once

#include <sys/socket.h>

#include <filesystem>
#include <string>

#include "zelvek/base/descriptor.h"
#include "zelvek/base/file_lock.h"
#include "zelvek/base/process.h"
#include "zelvek/service/caller.h"

namespace zelvek {

/// The socket that the service listens on, `zelvek.sock` in the run directory: for its own user, and for
/// members of the groups that may ask.
class ServiceSocket {
public:
    /// Prepares the directory and listens: on the socket that a service manager has made there and handed
    /// over, or on one of its own. A socket file that nobody answers on is replaced by that. Errors: Error;
    /// another service in the same directory is one, a directory that somebody else can write, and a socket
    /// that was handed over and is not the one of that directory. Where the file system cannot let groups in,
    /// the log says so.
    ServiceSocket(const std::filesystem::path& directory, const Groups& groups, Descriptor handed_over = {});

    /// Removes the socket's file, unless it was handed over.
    ~ServiceSocket();
    ServiceSocket(const ServiceSocket&) = delete;
    ServiceSocket& operator=(const ServiceSocket&) = delete;

    /// Gives the listening socket to whoever serves on it, and closes it.
    int ReleaseListener() { return listener_.release(); }

    /// Removes the socket's file now: nobody new can connect, who has connected is still accepted. One that
    /// was handed over stays, and whoever connects from now on waits there for the next service.
    void Unlink();

    /// Whether the socket is the service manager's, who has it before and after this service.
    bool outlives_service() const { return handed_over_; }

    const std::filesystem::path& path() const { return path_; }

    /// Whom the socket is open to besides.
    const Groups& groups() const { return groups_; }

private:
    /// The socket's file of a service that has died.
    void RemoveOld() const;

    void LetIn() const;

    std::filesystem::path path_;
    FileLock lock_;
    bool handed_over_;
    Descriptor listener_;
    Groups groups_;
};

/// Who is at the other end of a connection: user and process, as they were when it was made. Errors: Error of
/// code kIo.
ucred PeerOf(int connection);

/// The process of that id, while it is connected. Errors: Error of code kProtocol when it has ended.
Process ProcessOf(pid_t peer);

}  // namespace zelvek
