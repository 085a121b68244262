#include "local_socket.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <system_error>
#include <thread>

#include "vek/err.h"

namespace vek_client {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPause{50};

[[noreturn]] void Fail(const std::string& path, int error) {
    throw vek_err::Error("client", "connect", path + ": " + std::generic_category().message(error));
}

// 0, or the error.
int TryConnect(const Fd& fd, const sockaddr_un& address) {
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    // Blocking, so that a service with many callers is waited for.
    while (connect(fd.get(), generic, sizeof(address)) != 0) {
        if (errno != EINTR) return errno;
    }
    return 0;
}

}  // namespace

Fd Connect(const std::string& path, std::chrono::milliseconds patience) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) Fail(path, ENAMETOOLONG);
    path.copy(address.sun_path, path.size());
    const auto end = steady_clock::now() + patience;
    for (;;) {
        Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (!fd) Fail(path, errno);
        const int error = TryConnect(fd, address);
        if (error == 0) return fd;
        const bool may_pass = error == ECONNREFUSED || error == ENOENT;
        if (!may_pass || steady_clock::now() >= end) Fail(path, error);
        // Not the interruptible sleep: a run that is being ended still has its record to write back.
        std::this_thread::sleep_for(kPause);
    }
}

}  // namespace vek_client
