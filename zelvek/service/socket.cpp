#include "zelvek/service/socket.h"
#include "zelvek/base/error.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

namespace zelvek {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Fail(const std::string& deed, const fs::path& path, int error) {
    throw Error(Code::kIo, deed + " " + path.string() + ": " + std::generic_category().message(error));
}

fs::path Made(const fs::path& directory) {
    std::error_code error;
    if (fs::is_directory(directory, error)) return directory;
    if (directory.has_parent_path()) fs::create_directories(directory.parent_path(), error);
    if (::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST)
        Fail("making the directory", directory, errno);
    return directory;
}

sockaddr_un Address(const fs::path& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string text = path.string();
    if (text.size() >= sizeof(address.sun_path)) Fail("listening on", path, ENAMETOOLONG);
    text.copy(address.sun_path, text.size());
    return address;
}

int NewSocket(const fs::path& path) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) Fail("listening on", path, errno);
    return fd;
}

/// Whether a service answers there. The lock keeps out services like this one; this finds any other.
bool SomebodyAnswers(const fs::path& path) {
    const sockaddr_un address = Address(path);
    const int fd = NewSocket(path);
    const bool connected = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    ::close(fd);
    return connected;
}

int Listen(const fs::path& path) {
    const sockaddr_un address = Address(path);
    const int fd = NewSocket(path);
    // The mode is there from the first moment on. No other thread makes files yet.
    const mode_t before = ::umask(0177);
    const bool bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    const int error = errno;
    ::umask(before);
    if (bound && ::listen(fd, SOMAXCONN) == 0) return fd;
    ::close(fd);
    Fail("listening on", path, bound ? errno : error);
}

}  // namespace

ServiceSocket::ServiceSocket(const fs::path& directory)
    : path_(Made(directory) / "zelvek.sock"),
      lock_(directory / "zelvek.lock", "another service runs on " + path_.string() + " already") {
    struct stat status {};
    if (::lstat(path_.c_str(), &status) == 0) {
        if (!S_ISSOCK(status.st_mode))
            throw Error(Code::kIo, path_.string() + " is in the way: it is no socket");
        if (SomebodyAnswers(path_)) throw Error(Code::kIo, "another service answers on " + path_.string());
        Unlink();
    }
    fd_ = Listen(path_);
}

ServiceSocket::~ServiceSocket() { Unlink(); }

void ServiceSocket::Unlink() { ::unlink(path_.c_str()); }

std::optional<Process> Peer(int connection) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.uid != ::geteuid()) {
        return std::nullopt;
    }
    return FindProcess(peer.pid);
}

}  // namespace zelvek
