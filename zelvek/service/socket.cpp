#include "zelvek/service/socket.h"

#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "zelvek/base/error.h"
#include "zelvek/base/run_directory.h"
#include "zelvek/base/umask.h"

namespace zelvek {

namespace fs = std::filesystem;

namespace {

fs::path Prepared(const fs::path& directory) {
    PrepareRunDirectory(directory);
    return directory;
}

FileLock Lock(const fs::path& file, const std::string& taken) {
    const Umask usual(022);
    return {file, taken};
}

sockaddr_un Address(const fs::path& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string text = path.string();
    if (text.size() >= sizeof(address.sun_path)) throw IoError("listening on", path, ENAMETOOLONG);
    text.copy(address.sun_path, text.size());
    return address;
}

Descriptor NewSocket(const fs::path& path) {
    Descriptor made(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!made) throw IoError("listening on", path, errno);
    return made;
}

/// Whether some program listens there. Another zelvek would hold the lock; this finds every other program.
bool SomebodyAnswers(const fs::path& path) {
    const sockaddr_un address = Address(path);
    const Descriptor asking = NewSocket(path);
    return ::connect(asking.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

Descriptor Listen(const fs::path& path) {
    const sockaddr_un address = Address(path);
    Descriptor listener = NewSocket(path);
    // By the umask the file has its mode from the first moment on. No other thread makes files yet.
    const Umask for_its_user(0177);
    const int bound = ::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    if (bound != 0 || ::listen(listener.get(), SOMAXCONN) != 0) throw IoError("listening on", path, errno);
    return listener;
}

}  // namespace

ServiceSocket::ServiceSocket(const fs::path& directory)
    : path_(Prepared(directory) / "zelvek.sock"),
      lock_(Lock(directory / "zelvek.lock", "another service runs on " + path_.string() + " already")) {
    struct stat status {};
    if (::lstat(path_.c_str(), &status) == 0) {
        if (!S_ISSOCK(status.st_mode))
            throw Error(Code::kIo, path_.string() + " is in the way: it is no socket");
        if (SomebodyAnswers(path_)) throw Error(Code::kIo, "another service answers on " + path_.string());
        Unlink();
    }
    listener_ = Listen(path_);
}

ServiceSocket::~ServiceSocket() { Unlink(); }

void ServiceSocket::Unlink() { ::unlink(path_.c_str()); }

ucred PeerOf(int connection) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        throw IoError("asking who is connected to", "the socket", errno);
    return peer;
}

Process OwnProcess(const ucred& peer) {
    if (peer.uid != ::geteuid()) {
        throw Error(Code::kProtocol, "this service answers processes of user id " +
                                         std::to_string(::geteuid()) + " alone, and this one has user id " +
                                         std::to_string(peer.uid));
    }
    const auto process = FindProcess(peer.pid);
    if (!process) throw Error(Code::kProtocol, "the process that asked has ended");
    return *process;
}

}  // namespace zelvek
