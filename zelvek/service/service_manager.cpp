#include "zelvek/service/service_manager.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdlib>

#include "zelvek/base/error.h"
#include "zelvek/base/text.h"

namespace zelvek {

namespace {

constexpr int kFirstDescriptor = 3;  // SD_LISTEN_FDS_START

/// A variable's value, which is gone from the environment then; empty for none.
std::string Take(const char* name) {
    const char* value = std::getenv(name);
    std::string taken = value == nullptr ? "" : value;
    ::unsetenv(name);
    return taken;
}

/// 0 for what is no number.
long NumberOf(const std::string& text) {
    long number = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    return read.ec == std::errc() && read.ptr == end ? number : 0;
}

/// An environment may have come down from a program that was meant itself.
bool IsMeant(const std::string& pid) { return NumberOf(pid) == ::getpid(); }

Descriptor TakeListener() {
    const bool meant = IsMeant(Take("LISTEN_PID"));
    const long count = NumberOf(Take("LISTEN_FDS"));
    Take("LISTEN_FDNAMES");
    if (!meant || count == 0) return {};
    if (count != 1)
        throw Error(Code::kValue,
                    std::to_string(count) + " sockets were handed over to the service, which has one");
    Descriptor listener(kFirstDescriptor);
    if (::fcntl(listener.get(), F_SETFD, FD_CLOEXEC) != 0)
        throw IoError("taking", "the socket that was handed over", errno);
    return listener;
}

/// A watchdog without a process is meant for whoever is there.
std::optional<std::chrono::milliseconds> TakeWatchdog() {
    const std::string pid = Take("WATCHDOG_PID");
    const std::chrono::microseconds interval(NumberOf(Take("WATCHDOG_USEC")));
    if (interval.count() <= 0 || (!pid.empty() && !IsMeant(pid))) return std::nullopt;
    return std::chrono::duration_cast<std::chrono::milliseconds>(interval);
}

}  // namespace

ServiceManager::ServiceManager()
    : address_(Take("NOTIFY_SOCKET")), watchdog_(TakeWatchdog()), socket_(TakeListener()) {}

void ServiceManager::TellReloading() const {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();  // CLOCK_MONOTONIC
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    Tell("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(microseconds));
}

void ServiceManager::TellReady(const std::string& outcome) const {
    Tell("READY=1\nSTATUS=" + WithoutControls(outcome, ' '));
}

void ServiceManager::Tell(const std::string& state) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (address_.empty() || address_.size() >= sizeof(address.sun_path)) return;
    address_.copy(address.sun_path, address_.size());
    if (address_.front() == '@') address.sun_path[0] = '\0';  // a name without a file
    const Descriptor teller(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address_.size());
    ::sendto(teller.get(), state.data(), state.size(), MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr*>(&address), size);
}

}  // namespace zelvek
