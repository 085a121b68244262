#include "zelvek/publishing/responder.h"

#include <fcntl.h>
#include <microhttpd.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <optional>
#include <string_view>

#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"
#include "zelvek/base/log.h"
#include "zelvek/base/text.h"
#include "zelvek/publishing/answers.h"
#include "zelvek/publishing/visitors.h"

namespace zelvek {
namespace {

constexpr std::string_view kPath = "/.well-known/acme-challenge/";
constexpr off_t kLargestAnswer = 65536;  // a key authorization has a few hundred bytes

// Enough for an authority that asks from several places at once, and all that strangers can use up. There is
// room for those that are being ended to make room for others.
constexpr unsigned kThreads = 2;
constexpr unsigned kConnections = 256;
static_assert(kConnections > Visitors::kAltogether);
constexpr std::size_t kMemoryOfOneConnection = 8192;
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

/// As `TryListen`, in this address family. Errors: Error of code kValue for what is no numeric address.
Descriptor ListenOn(const Endpoint& endpoint, int family, const std::string& address) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    addrinfo* found = nullptr;
    const char* host = endpoint.host.empty() ? nullptr : endpoint.host.c_str();
    if (getaddrinfo(host, endpoint.port.c_str(), &hints, &found) != 0) {
        throw Error(Code::kValue, "\"" + Printable(address) + "\" is no numeric address");
    }
    const AddressList addresses(found, &freeaddrinfo);
    return TryListen(*found);
}

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

/// A connection has one request: nobody keeps a place after it.
void AddHeaders(MHD_Response* response) {
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "text/plain");
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
}

MHD_Result SendStatus(MHD_Connection* connection, unsigned status, const char* text) {
    // The library does not change a persistent buffer; its parameter just lacks the const.
    MHD_Response* response =
        MHD_create_response_from_buffer(std::strlen(text), const_cast<char*>(text), MHD_RESPMEM_PERSISTENT);
    AddHeaders(response);
    const MHD_Result result = MHD_queue_response(connection, status, response);
    MHD_destroy_response(response);
    return result;
}

/// Sends the file; false where there is none to send.
bool SendFile(MHD_Connection* connection, const std::filesystem::path& file) {
    // It does not follow a link to elsewhere, nor wait for the other end of a pipe.
    Descriptor content(open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!content) return false;
    struct stat status {};
    const bool regular =
        fstat(content.get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= kLargestAnswer;
    if (!regular) return false;
    MHD_Response* response =
        MHD_create_response_from_fd(static_cast<std::size_t>(status.st_size), content.get());
    if (response == nullptr) return false;
    content.release();  // closed by the response when its last byte is sent
    AddHeaders(response);
    const bool queued = MHD_queue_response(connection, MHD_HTTP_OK, response) == MHD_YES;
    MHD_destroy_response(response);
    return queued;
}

/// The token that a request is for.
std::optional<std::string> RequestedToken(std::string_view method, std::string_view path) {
    if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD) return std::nullopt;
    if (!path.starts_with(kPath)) return std::nullopt;
    std::string token(path.substr(kPath.size()));
    if (!answers::IsToken(token)) return std::nullopt;
    return token;
}

// NOLINTNEXTLINE(readability-function-size): the parameters are the library's
MHD_Result Answer(void* answers, MHD_Connection* connection, const char* path, const char* method,
                  const char* /*version*/, const char* /*upload*/, std::size_t* /*upload_size*/,
                  void** /*state*/) {
    const auto& folder = *static_cast<const std::filesystem::path*>(answers);
    const std::optional<std::string> token = RequestedToken(method, path);
    if (token && SendFile(connection, folder / *token)) return MHD_YES;
    return SendStatus(connection, MHD_HTTP_NOT_FOUND, "not found\n");
}

/// Called when a connection is there, before anything is read, and again before it is closed.
void Note(void* visitors, MHD_Connection* connection, void** /*state*/,
          MHD_ConnectionNotificationCode code) try {
    auto& all = *static_cast<Visitors*>(visitors);
    const auto* descriptor = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    const auto* address = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    if (descriptor == nullptr || address == nullptr) return;
    const int number = descriptor->connect_fd;
    code == MHD_CONNECTION_NOTIFY_CLOSED ? all.Left(number) : all.Came(number, address->client_addr);
} catch (const std::exception& error) {
    // No exception may pass through the library, which is written in C.
    Log(std::string("a connection to the web server for answers: ") + error.what());
}

/// Leaves the path as it came: no character of a token needs percent-encoding, so what is encoded is none.
std::size_t LeaveEncoded(void* /*unused*/, MHD_Connection* /*connection*/, char* text) {
    return std::strlen(text);
}

/// Threads that are made meanwhile get no signals: those are for the service's main thread.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_{};
};

}  // namespace

struct Responder::Server {
    Server(std::filesystem::path folder, std::chrono::milliseconds limit)
        : answers(std::move(folder)), visitors(limit) {}

    std::filesystem::path answers;
    Visitors visitors;
    MHD_Daemon* daemon = nullptr;
};

Responder::Responder(const std::string& address, std::filesystem::path answers,
                     std::chrono::milliseconds limit) {
    const SignalsBlocked blocked;
    server_ = std::make_unique<Server>(std::move(answers), limit);
    const int listener = Listen(address).release();  // the daemon closes it
    server_->daemon =
        MHD_start_daemon(MHD_USE_EPOLL_INTERNAL_THREAD, 0, nullptr, nullptr, &Answer, &server_->answers,  //
                         MHD_OPTION_LISTEN_SOCKET, listener,                                              //
                         MHD_OPTION_THREAD_POOL_SIZE, kThreads,                                           //
                         MHD_OPTION_CONNECTION_LIMIT, kConnections,                                       //
                         MHD_OPTION_NOTIFY_CONNECTION, &Note, &server_->visitors,                         //
                         MHD_OPTION_CONNECTION_MEMORY_LIMIT, kMemoryOfOneConnection,                      //
                         MHD_OPTION_UNESCAPE_CALLBACK, &LeaveEncoded, nullptr, MHD_OPTION_END);
    if (server_->daemon == nullptr) {
        throw Error(Code::kIo, "cannot serve answers on " + address);
    }
}

Responder::~Responder() { MHD_stop_daemon(server_->daemon); }

int Responder::Port() const {
    const MHD_DaemonInfo* info = MHD_get_daemon_info(server_->daemon, MHD_DAEMON_INFO_BIND_PORT);
    return info == nullptr ? 0 : info->port;
}

}  // namespace zelvek
