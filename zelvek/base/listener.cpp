#include "zelvek/base/listener.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "zelvek/base/error.h"
#include "zelvek/base/text.h"

namespace zelvek {

namespace {

constexpr int kBacklog = 128;

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

struct Endpoint {
    std::string host;  // empty: every address
    std::string port;
};

Endpoint ParseAddress(const std::string& address) {
    const std::size_t colon = address.rfind(':');
    if (colon != std::string::npos) {
        std::string host = address.substr(0, colon);
        const std::string port = address.substr(colon + 1);
        const bool brackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
        if (brackets) host = host.substr(1, host.size() - 2);
        const bool number = !port.empty() && port.size() <= 5 &&
                            port.find_first_not_of("0123456789") == std::string::npos &&
                            std::stoi(port) <= 65535;
        // An IPv6 address, and nothing else, stands in brackets: "::1:80" would have two meanings.
        if (number && brackets == (host.find(':') != std::string::npos)) return {host, port};
    }
    throw Error(Code::kValue, "\"" + Printable(address) + "\" is no address and port to listen on");
}

/// A socket that listens; none, with the reason in errno, where that fails.
Descriptor TryListen(const addrinfo& where) {
    Descriptor listener(socket(where.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!listener) return listener;
    const int on = 1;
    const int off = 0;
    setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    // ":80" is to be one socket for both families, whatever the system's default is.
    if (where.ai_family == AF_INET6) setsockopt(listener.get(), IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
    const bool listens =
        bind(listener.get(), where.ai_addr, where.ai_addrlen) == 0 && listen(listener.get(), kBacklog) == 0;
    return listens ? std::move(listener) : Descriptor();
}

/// Errors: Error of code kValue for what is no numeric address.
AddressList Find(const Endpoint& endpoint, int family, const std::string& address) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    addrinfo* found = nullptr;
    const char* host = endpoint.host.empty() ? nullptr : endpoint.host.c_str();
    if (getaddrinfo(host, endpoint.port.c_str(), &hints, &found) != 0) {
        throw Error(Code::kValue, "\"" + Printable(address) + "\" is no numeric address");
    }
    return {found, &freeaddrinfo};
}

/// As `TryListen`, in this address family.
Descriptor ListenOn(const Endpoint& endpoint, int family, const std::string& address) {
    return TryListen(*Find(endpoint, family, address));
}

bool IsLoopback(const sockaddr& address) {
    if (address.sa_family == AF_INET) {
        constexpr int kNetBits = 24;
        const auto number = ntohl(reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr);
        return number >> kNetBits == IN_LOOPBACKNET;
    }
    return address.sa_family == AF_INET6 &&
           IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6&>(address).sin6_addr);
}

}  // namespace

Descriptor Listen(const std::string& address) {
    const Endpoint endpoint = ParseAddress(address);
    const bool every = endpoint.host.empty();
    Descriptor listener = ListenOn(endpoint, every ? AF_INET6 : AF_UNSPEC, address);
    // A machine without IPv6 still has every IPv4 address.
    if (!listener && every && errno != EADDRINUSE && errno != EACCES) {
        listener = ListenOn(endpoint, AF_INET, address);
    }
    if (!listener) throw IoError("cannot listen on", address, errno);
    return listener;
}

Descriptor ListenOnSocket(const std::string& path, unsigned mode) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) throw IoError("cannot listen on", path, ENAMETOOLONG);
    path.copy(address.sun_path, path.size());
    const auto* any = reinterpret_cast<const sockaddr*>(&address);
    const Descriptor asking(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(asking.get(), any, sizeof address) == 0) throw IoError("cannot listen on", path, EADDRINUSE);
    if (errno == ECONNREFUSED) ::unlink(path.c_str());  // of a service that has died
    Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!listener || bind(listener.get(), any, sizeof address) != 0 || chmod(path.c_str(), mode) != 0 ||
        listen(listener.get(), kBacklog) != 0)
        throw IoError("cannot listen on", path, errno);
    return listener;
}

bool IsLoopback(const std::string& address) {
    const Endpoint endpoint = ParseAddress(address);
    return !endpoint.host.empty() && IsLoopback(*Find(endpoint, AF_UNSPEC, address)->ai_addr);
}

}  // namespace zelvek
