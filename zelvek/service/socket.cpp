#include "zelvek/service/socket.h"

#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "zelvek/base/access_list.h"
#include "zelvek/base/error.h"
#include "zelvek/base/log.h"
#include "zelvek/base/run_directory.h"
#include "zelvek/base/text.h"
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

/// The address that a socket listens on, as text; empty for one that does not listen, or on no file.
std::string PlaceOf(const Descriptor& listener) {
    int listens = 0;
    socklen_t size = sizeof(listens);
    if (::getsockopt(listener.get(), SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) != 0 || listens == 0)
        return "";
    sockaddr_un address{};
    size = sizeof(address);
    auto* any = reinterpret_cast<sockaddr*>(&address);
    if (::getsockname(listener.get(), any, &size) != 0 || address.sun_family != AF_UNIX) return "";
    return {address.sun_path, ::strnlen(address.sun_path, sizeof(address.sun_path))};
}

/// The file's user is this process's, and nobody else can connect but by an access list, which the service
/// makes anew.
void CheckOwn(const fs::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) throw IoError("looking at", path, errno);
    const unsigned closed = HasAccessList(path) ? 07 : 077;
    if (S_ISSOCK(status.st_mode) && status.st_uid == ::geteuid() && (status.st_mode & closed) == 0) return;
    throw Error(Code::kIo, "the socket " + path.string() + " that was handed over has to be of user id " +
                               std::to_string(::geteuid()) + ", with mode 0600");
}

void CheckHandedOver(const Descriptor& listener, const fs::path& path) {
    if (const std::string place = PlaceOf(listener); place != path) {
        throw Error(Code::kIo, "the socket that was handed over listens on \"" + Printable(place) +
                                   "\", the service's is " + path.string());
    }
    CheckOwn(path);
    // Who connects sees the user that has listened last, and asks nobody but its own.
    if (::listen(listener.get(), SOMAXCONN) != 0) throw IoError("listening on", path, errno);
}

}  // namespace

ServiceSocket::ServiceSocket(const fs::path& directory, const Groups& groups, Descriptor handed_over)
    : path_(Prepared(directory) / "zelvek.sock"),
      lock_(Lock(directory / "zelvek.lock", "another service runs on " + path_.string() + " already")),
      handed_over_(handed_over),
      listener_(std::move(handed_over)),
      groups_(groups) {
    if (handed_over_) {
        CheckHandedOver(listener_, path_);
    } else {
        RemoveOld();
        listener_ = Listen(path_);
    }
    LetIn();
}

void ServiceSocket::LetIn() const try {
    constexpr unsigned kPass = 1;
    constexpr unsigned kConnect = 6;
    LetGroups(path_, kConnect, groups_.All());
    LetGroups(path_.parent_path(), kPass, groups_.All());
} catch (const Error& error) {
    // Certificates matter more than who may look at them.
    Log(std::string("members of groups cannot use the service: ") + error.what());
}

void ServiceSocket::RemoveOld() const {
    struct stat status {};
    if (::lstat(path_.c_str(), &status) != 0) return;
    if (!S_ISSOCK(status.st_mode)) throw Error(Code::kIo, path_.string() + " is in the way: it is no socket");
    if (SomebodyAnswers(path_)) throw Error(Code::kIo, "another service answers on " + path_.string());
    ::unlink(path_.c_str());
}

ServiceSocket::~ServiceSocket() { Unlink(); }

void ServiceSocket::Unlink() {
    if (!handed_over_) ::unlink(path_.c_str());
}

ucred PeerOf(int connection) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        throw IoError("asking who is connected to", "the socket", errno);
    return peer;
}

Process ProcessOf(pid_t peer) {
    const auto process = FindProcess(peer);
    if (!process) throw Error(Code::kProtocol, "the process that asked has ended");
    return *process;
}

}  // namespace zelvek
