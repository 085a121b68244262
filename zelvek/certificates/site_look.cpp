#include "zelvek/certificates/site_look.h"

#include <netdb.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

#include "vek/str.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"
#include "zelvek/base/text.h"
#include "zelvek/certificates/openssl.h"

namespace zelvek {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Addresses = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;
using Context = std::unique_ptr<SSL_CTX, openssl::Deleter<SSL_CTX_free>>;
using Session = std::unique_ptr<SSL, openssl::Deleter<SSL_free>>;

constexpr const char* kHttps = "443";

[[noreturn]] void Fail(const std::string& reason) { throw Error(Code::kIo, reason); }

Addresses Find(const std::string& host, const std::string& port, int flags) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(host.c_str(), port.c_str(), &hints, &found);
    if (error != 0) Fail(Printable(host) + ": " + gai_strerror(error));
    return {found, &freeaddrinfo};
}

/// What a descriptor is waited for, until a time.
class Patience {
public:
    explicit Patience(milliseconds limit) : end_(steady_clock::now() + limit) {}

    void WaitFor(int descriptor, short events) const {
        const auto left = std::chrono::ceil<milliseconds>(end_ - steady_clock::now());
        pollfd waiting{descriptor, events, 0};
        if (left.count() <= 0 || ::poll(&waiting, 1, static_cast<int>(left.count())) == 0)
            Fail("no answer in time");
    }

private:
    steady_clock::time_point end_;
};

Descriptor Connect(const Site& site, const Patience& patience) {
    const Addresses address = Find(site.address, str::Str(site.port), AI_NUMERICHOST);
    Descriptor descriptor(::socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!descriptor) throw IoError("cannot make", "a socket", errno);
    int error = ::connect(descriptor.get(), address->ai_addr, address->ai_addrlen) == 0 ? 0 : errno;
    if (error == EINPROGRESS) {
        patience.WaitFor(descriptor.get(), POLLOUT);
        socklen_t size = sizeof error;
        ::getsockopt(descriptor.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    }
    if (error != 0) Fail(std::strerror(error));
    return descriptor;
}

/// Only what is shown counts: who would trust it is not asked.
Session Begin(const Context& context, int descriptor, const std::string& name) {
    openssl::Must(context != nullptr);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_NONE, nullptr);
    Session session(SSL_new(context.get()));
    openssl::Must(session && SSL_set_fd(session.get(), descriptor) == 1 &&
                  SSL_ctrl(session.get(), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                           const_cast<char*>(name.c_str())) == 1);
    return session;
}

void Shake(const Session& session, int descriptor, const Patience& patience) {
    for (int done = SSL_connect(session.get()); done != 1; done = SSL_connect(session.get())) {
        const int wish = SSL_get_error(session.get(), done);
        if (wish != SSL_ERROR_WANT_READ && wish != SSL_ERROR_WANT_WRITE)
            Fail("the TLS handshake failed: " + openssl::Reason());
        patience.WaitFor(descriptor, wish == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT);
    }
}

Site SiteAt(const addrinfo& address) {
    std::array<char, NI_MAXHOST> host{};
    getnameinfo(address.ai_addr, address.ai_addrlen, host.data(), host.size(), nullptr, 0, NI_NUMERICHOST);
    return {host.data(), 443};
}

}  // namespace

std::string Site::Text() const {
    const bool ipv6 = address.find(':') != std::string::npos;
    return (ipv6 ? "[" + address + "]" : address) + ":" + str::Str(port);
}

Site ReadSite(const std::string& text) {
    std::string address = text;
    const std::string port = str::RGetWord(address, ':');
    const bool brackets = address.size() > 2 && address.front() == '[' && address.back() == ']';
    if (brackets) address = address.substr(1, address.size() - 2);
    const bool number = !port.empty() && port.size() <= 5 &&
                        port.find_first_not_of("0123456789") == std::string::npos && str::Int(port) <= 65535;
    // An IPv6 address, and nothing else, stands in brackets.
    if (number && brackets == (address.find(':') != std::string::npos) && !address.empty()) {
        try {
            Find(address, port, AI_NUMERICHOST);
            return {address, str::Int(port)};
        } catch (const Error&) {
        }
    }
    throw Error(Code::kValue, "\"" + Printable(text) + "\" is no address and port of a web server");
}

std::vector<Site> SitesOf(const std::string& host, std::size_t most) {
    const Addresses found = Find(host, kHttps, 0);
    std::vector<Site> sites;
    for (const addrinfo* each = found.get(); each != nullptr && sites.size() < most; each = each->ai_next)
        sites.push_back(SiteAt(*each));
    return sites;
}

std::string CertificateAt(const Site& site, const std::string& name, milliseconds limit) {
    const Patience patience(limit);
    const Descriptor descriptor = Connect(site, patience);
    const Context context(SSL_CTX_new(TLS_client_method()));
    const Session session = Begin(context, descriptor.get(), name);
    Shake(session, descriptor.get(), patience);
    const openssl::Certificate shown(SSL_get1_peer_certificate(session.get()));
    if (!shown) Fail("no certificate is shown");
    return openssl::Pem(shown);
}

}  // namespace zelvek
