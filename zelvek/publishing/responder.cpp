#include "zelvek/publishing/responder.h"

#include <fcntl.h>
#include <microhttpd.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cstring>
#include <exception>
#include <optional>
#include <string_view>

#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"
#include "zelvek/base/listener.h"
#include "zelvek/base/log.h"
#include "zelvek/base/signals_blocked.h"
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
        // Threads that have all the connections they may have do not look at the listener, and so do not see
        // it end: they are told by a channel of their own.
        MHD_start_daemon(MHD_USE_EPOLL_INTERNAL_THREAD | MHD_USE_ITC, 0, nullptr, nullptr, &Answer,
                         &server_->answers,                                           //
                         MHD_OPTION_LISTEN_SOCKET, listener,                          //
                         MHD_OPTION_THREAD_POOL_SIZE, kThreads,                       //
                         MHD_OPTION_CONNECTION_LIMIT, kConnections,                   //
                         MHD_OPTION_NOTIFY_CONNECTION, &Note, &server_->visitors,     //
                         MHD_OPTION_CONNECTION_MEMORY_LIMIT, kMemoryOfOneConnection,  //
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
