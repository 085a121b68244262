#include "zelvek/page/page.h"

#include <microhttpd.h>
#include <pwd.h>
#include <strings.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <exception>

#include "zelvek/base/deadlines.h"
#include "zelvek/base/error.h"
#include "zelvek/base/listener.h"
#include "zelvek/base/log.h"
#include "zelvek/base/signals_blocked.h"
#include "zelvek/page/files.h"
#include "zelvek/page/streams.h"

namespace zelvek::page {

namespace {

constexpr unsigned kConnections = 128;
static_assert(kConnections > Streams::kAltogether);
constexpr std::size_t kMemoryOfOneConnection = std::size_t{32} << 10;  // of which headers have a part
constexpr std::size_t kMostOfBody = std::size_t{16} << 10;
constexpr unsigned kSilence = 10;                  // seconds without a byte
constexpr std::chrono::seconds kWholeRequest{30};  // however busy a connection looks
constexpr std::size_t kStreamBlock = 256;

// Nothing from elsewhere, no code and no style but the files of the page, nothing written as HTML by code.
constexpr const char* kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; base-uri "
    "'none'; "
    "form-action 'none'; frame-ancestors 'none'; require-trusted-types-for 'script'; trusted-types 'none'";

std::string HeaderOf(MHD_Connection* connection, const char* name) {
    const char* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value == nullptr ? "" : value;
}

int DescriptorOf(MHD_Connection* connection) {
    const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    return info == nullptr ? -1 : info->connect_fd;
}

MHD_Result AddParameter(void* query, MHD_ValueKind /*kind*/, const char* key, const char* value) {
    static_cast<std::map<std::string, std::string>*>(query)->emplace(key, value == nullptr ? "" : value);
    return MHD_YES;
}

struct UserHeader {
    std::string name;
    std::vector<std::string>& values;
};

MHD_Result AddUser(void* header, MHD_ValueKind /*kind*/, const char* key, const char* value) {
    auto& wanted = *static_cast<UserHeader*>(header);
    if (::strcasecmp(key, wanted.name.c_str()) == 0)
        wanted.values.emplace_back(value == nullptr ? "" : value);
    return MHD_YES;
}

std::string CookieOf(MHD_Connection* connection, const std::string& name) {
    const char* value = MHD_lookup_connection_value(connection, MHD_COOKIE_KIND, name.c_str());
    return value == nullptr ? "" : value;
}

/// One request on its way in.
struct Upload {
    Request request;
    bool too_big = false;
};

/// For a stream as long as it is open.
struct StreamState {
    Streams::Stream* stream;
};

ssize_t ReadStream(void* state, std::uint64_t /*position*/, char* buffer, std::size_t size) try {
    const long read = Streams::Read(*static_cast<StreamState*>(state)->stream, buffer, size);
    return read < 0 ? MHD_CONTENT_READER_END_OF_STREAM : read;
} catch (const std::exception& error) {
    Log(std::string("page: ") + error.what());
    return MHD_CONTENT_READER_END_WITH_ERROR;
}

void CloseStream(void* state) {
    auto* all = static_cast<StreamState*>(state);
    all->stream->all->Close(all->stream);
    delete all;
}

}  // namespace

struct Page::Server {
    Server(Services& panel, const Settings& chosen, Allowed allowed)
        : services(panel),
          settings(chosen),
          files(settings.files),
          gate(services.store, settings),
          api(services, gate, settings, allowed, files.languages()) {
        if (IsSocketPath(settings.listen) && !settings.peer.empty())
            peer = ::getpwnam(settings.peer.c_str())->pw_uid;
    }

    Services& services;
    Settings settings;
    Files files;
    Gate gate;
    Api api;
    Streams streams;
    Deadlines deadlines;
    uid_t peer = ::geteuid();
    MHD_Daemon* daemon = nullptr;

    /// On a socket the kernel says who is at its other end.
    bool IsKnown(int descriptor) const {
        if (!IsSocketPath(settings.listen)) return true;
        ucred other{};
        socklen_t size = sizeof other;
        if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &other, &size) != 0) return false;
        return other.uid == 0 || other.uid == ::geteuid() || other.uid == peer;
    }

    Request RequestOf(MHD_Connection* connection, const char* path, const char* method) const {
        Request request;
        request.method = method;
        request.path = path;
        MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, &AddParameter, &request.query);
        request.host = HeaderOf(connection, "Host");
        request.origin = HeaderOf(connection, "Origin");
        request.cookie = CookieOf(connection, gate.CookieName());
        request.csrf = HeaderOf(connection, "X-Zelvek-Csrf");
        request.language = HeaderOf(connection, "Accept-Language");
        request.agent = HeaderOf(connection, "User-Agent");
        request.content_type = HeaderOf(connection, "Content-Type");
        request.known = HeaderOf(connection, "If-None-Match");
        request.by_itself =
            !HeaderOf(connection, "X-Zelvek-Refresh").empty() || request.path == "/api/changes";
        UserHeader header{settings.user_header, request.user};
        if (!header.name.empty()) MHD_get_connection_values(connection, MHD_HEADER_KIND, &AddUser, &header);
        return request;
    }

    Response AnswerTo(const Upload& upload) {
        const Request& request = upload.request;
        if (upload.too_big) return {413, "text/plain", "the request is too large\n"};
        if (!gate.IsForUs(request)) return {421, "text/plain", "this page has another name\n"};
        if (request.path.starts_with("/api/")) return api.Answer(request);
        if (request.method != "GET" && request.method != "HEAD")
            return {405, "text/plain", "files are only read\n"};
        return files.Of(request);
    }

    /// It lasts until the session ends, or the page is closed.
    MHD_Response* StreamResponse(MHD_Connection* connection, const Response& response) {
        const int descriptor = DescriptorOf(connection);
        deadlines.Lift(descriptor);
        const int on = 1;
        ::setsockopt(descriptor, SOL_SOCKET, SO_KEEPALIVE, &on,
                     sizeof on);  // a machine that is gone is found
        const auto holds = [this, watch = response.watch] { return watch.empty() || gate.Holds(watch); };
        auto* state = new StreamState{streams.Open(connection, holds)};  // deleted by CloseStream
        return MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kStreamBlock, &ReadStream, state,
                                                 &CloseStream);
    }

    MHD_Result Send(MHD_Connection* connection, const Response& response) {
        MHD_Response* made =
            response.stream
                ? StreamResponse(connection, response)
                // The library copies the text; its parameter just lacks the const.
                : MHD_create_response_from_buffer(
                      response.body.size(), const_cast<char*>(response.body.data()), MHD_RESPMEM_MUST_COPY);
        if (made == nullptr) return MHD_NO;
        std::map<std::string, std::string> headers{{"Content-Type", response.type},
                                                   {"Content-Security-Policy", kPolicy},
                                                   {"X-Content-Type-Options", "nosniff"},
                                                   {"X-Frame-Options", "DENY"},
                                                   {"Referrer-Policy", "no-referrer"},
                                                   {"Cross-Origin-Resource-Policy", "same-origin"},
                                                   {"Cross-Origin-Opener-Policy", "same-origin"},
                                                   {"X-Accel-Buffering", "no"},
                                                   {"Cache-Control", "no-store"},
                                                   {"Connection", "close"}};
        for (const auto& [name, value] : response.headers) headers[name] = value;
        for (const auto& [name, value] : headers) MHD_add_response_header(made, name.c_str(), value.c_str());
        const MHD_Result result = MHD_queue_response(connection, response.status, made);
        MHD_destroy_response(made);
        return result;
    }

    // NOLINTNEXTLINE(readability-function-size): the parameters are the library's
    static MHD_Result Handle(void* self, MHD_Connection* connection, const char* path, const char* method,
                             const char* /*version*/, const char* data, std::size_t* size, void** state) try {
        auto& server = *static_cast<Server*>(self);
        if (*state == nullptr) {
            if (!server.IsKnown(DescriptorOf(connection)))
                return server.Send(connection, {403, "text/plain", "this socket is for others\n"});
            *state = new Upload{server.RequestOf(connection, path, method)};  // deleted by End
            return MHD_YES;
        }
        auto& upload = *static_cast<Upload*>(*state);
        if (*size > 0) {
            upload.too_big = upload.too_big || upload.request.body.size() + *size > kMostOfBody;
            if (!upload.too_big) upload.request.body.append(data, *size);
            *size = 0;
            return MHD_YES;
        }
        return server.Send(connection, server.AnswerTo(upload));
    } catch (const std::exception& error) {
        // No exception may pass through the library, which is written in C. It closes the connection.
        Log(std::string("page: ") + error.what());
        return MHD_NO;
    }

    static void End(void* /*self*/, MHD_Connection* /*connection*/, void** state,
                    MHD_RequestTerminationCode /*why*/) {
        delete static_cast<Upload*>(*state);
        *state = nullptr;
    }

    /// Called when a connection is there, before anything is read, and again before it is closed.
    static void Note(void* self, MHD_Connection* connection, void** /*state*/,
                     MHD_ConnectionNotificationCode code) {
        auto& deadlines = static_cast<Server*>(self)->deadlines;
        const int descriptor = DescriptorOf(connection);
        code == MHD_CONNECTION_NOTIFY_CLOSED ? deadlines.Lift(descriptor)
                                             : deadlines.Set(descriptor, kWholeRequest);
    }

    Descriptor Listener() const {
        if (!IsSocketPath(settings.listen)) return Listen(settings.listen);
        // Whoever connects is asked of the kernel, so the file need not tell users apart.
        return ListenOnSocket(settings.listen, 0666);
    }

    void Start() {
        const SignalsBlocked blocked;
        const int listener = Listener().release();  // the daemon closes it
        daemon = MHD_start_daemon(MHD_USE_EPOLL_INTERNAL_THREAD | MHD_USE_ITC | MHD_ALLOW_SUSPEND_RESUME, 0,
                                  nullptr, nullptr, &Handle, this,             //
                                  MHD_OPTION_LISTEN_SOCKET, listener,          //
                                  MHD_OPTION_CONNECTION_LIMIT, kConnections,   //
                                  MHD_OPTION_CONNECTION_TIMEOUT, kSilence,     //
                                  MHD_OPTION_NOTIFY_CONNECTION, &Note, this,   //
                                  MHD_OPTION_NOTIFY_COMPLETED, &End, nullptr,  //
                                  MHD_OPTION_CONNECTION_MEMORY_LIMIT, kMemoryOfOneConnection, MHD_OPTION_END);
        if (daemon == nullptr) throw Error(Code::kIo, "cannot serve the page on " + settings.listen);
        services.store.TellOfChange([this] { streams.Tell(); });
    }
};

Page::Page(Services& services, const Settings& settings, Allowed allowed) {
    CheckSettings(settings);
    server_ = std::make_unique<Server>(services, settings, allowed);
    server_->Start();
}

Page::~Page() {
    server_->services.store.TellOfChange({});
    server_->streams.End();  // the library cannot end streams that sleep
    MHD_stop_daemon(server_->daemon);
    if (IsSocketPath(server_->settings.listen)) ::unlink(server_->settings.listen.c_str());
}

int Page::Port() const {
    const MHD_DaemonInfo* info = MHD_get_daemon_info(server_->daemon, MHD_DAEMON_INFO_BIND_PORT);
    return info == nullptr ? 0 : info->port;
}

}  // namespace zelvek::page
