#include "zelvek/service/query_server.h"

#include <microhttpd.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "zelvek/base/error.h"
#include "zelvek/base/happening.h"
#include "zelvek/base/log.h"

namespace zelvek {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr unsigned kConnections = 256;
constexpr const char* kIdentityHeader = "X-Vek-Query";
constexpr std::size_t kIdentityLength = 32;
constexpr milliseconds kDrainPause{10};
constexpr seconds kDrainQueries{120};  // an installation may be waiting for its reload command
constexpr seconds kDrainUploads{1};    // for queries that were sent and are still to be read

/// Who sends a query, and which one.
struct Sender {
    Caller caller;
    Process process;  // of the service's own user alone
    std::string identity;
};

void LogRefusal(const Caller& caller, const std::string& sentence) {
    Log(Happening::kRefused, {},
        "refused user id " + std::to_string(caller.user) + ", process " + std::to_string(caller.process) +
            ": " + sentence);
}

/// One query on its way in.
class Upload {
public:
    explicit Upload(Sender sender)
        : sender_(std::move(sender)),
          limit_(sender_.caller.right > Right::kRead ? Server::kBodyLimit : Server::kReadersLimit) {}

    /// A query beyond the limit is read to its end, since the caller hears the reason only after that, but
    /// not kept.
    void Take(const char* data, std::size_t size) {
        too_big_ = too_big_ || body_.size() + size > limit_;
        too_big_ ? body_.clear() : static_cast<void>(body_.append(data, size));
    }

    Answer Carry(Services& services) const {
        if (too_big_) {
            return {ErrorAnswer({Code::kProtocol, "query", "",
                                 "the query is larger than " + std::to_string(limit_) + " bytes"})};
        }
        const Query query{Parameters(body_), sender_.process, sender_.identity, sender_.caller.right};
        Answer answer = AnswerQuery(services, query);
        if (!answer.denied.empty()) LogRefusal(sender_.caller, answer.denied);
        return answer;
    }

private:
    Sender sender_;
    std::size_t limit_;
    std::string body_;
    bool too_big_ = false;
};

MHD_Result Send(MHD_Connection* connection, unsigned status, const std::string& text) {
    // The library copies the text; its parameter just lacks the const.
    MHD_Response* response =
        MHD_create_response_from_buffer(text.size(), const_cast<char*>(text.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) return MHD_NO;
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "text/xml; charset=utf-8");
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
    const MHD_Result result = MHD_queue_response(connection, status, response);
    MHD_destroy_response(response);
    return result;
}

MHD_Result Refuse(MHD_Connection* connection, unsigned status, const std::string& message,
                  Code code = Code::kProtocol) {
    return Send(connection, status, ErrorAnswer({code, "query", "", message}));
}

/// Why who connects is told nothing.
std::string Unadmitted(const Caller& caller, const GroupNames& groups) {
    const std::string user = std::to_string(caller.user);
    if (groups.admin.empty() && groups.read.empty()) {
        return "this service answers processes of user id " + std::to_string(::geteuid()) +
               " alone, and this one has user id " + user;
    }
    return "this service " + WhoHas(Right::kRead, groups) + ", and this process, of user id " + user +
           ", has none of that";
}

/// What a query's header says; empty where it says nothing.
std::string HeaderOf(MHD_Connection* connection, const char* name) {
    const char* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value == nullptr ? "" : value;
}

bool IsIdentity(const std::string& text) {
    return text.size() == kIdentityLength && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

int DescriptorOf(MHD_Connection* connection) {
    const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    if (info == nullptr) throw Error(Code::kIo, "a connection without a descriptor");
    return info->connect_fd;
}

/// The first call for a request, when its headers are there.
MHD_Result Begin(Server& server, MHD_Connection* connection, const std::string& path,
                 const std::string& method, void** state) {
    const auto caller = server.connections().CallerAt(DescriptorOf(connection));
    if (!caller) return MHD_NO;
    if (caller->right == Right::kNone) {
        const std::string why = Unadmitted(*caller, server.services().groups);
        LogRefusal(*caller, why);
        return Refuse(connection, MHD_HTTP_FORBIDDEN, why, Code::kDenied);
    }
    Sender sender{*caller, {}, HeaderOf(connection, kIdentityHeader)};
    try {
        if (caller->right == Right::kOwn) sender.process = ProcessOf(caller->process);
    } catch (const Error& error) {
        Log(std::string("refused a connection: ") + error.what());
        return Refuse(connection, MHD_HTTP_FORBIDDEN, error.what());
    }
    if (path != "/") return Refuse(connection, MHD_HTTP_NOT_FOUND, "queries go to \"/\"");
    if (method != MHD_HTTP_METHOD_POST)
        return Refuse(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "queries are POSTs");
    if (!sender.identity.empty() && !IsIdentity(sender.identity)) {
        return Refuse(connection, MHD_HTTP_BAD_REQUEST,
                      std::string(kIdentityHeader) + " has 32 hexadecimal digits in small letters");
    }
    *state = new Upload(std::move(sender));  // deleted by End
    return MHD_YES;
}

// NOLINTNEXTLINE(readability-function-size): the parameters are the library's
MHD_Result Handle(void* server, MHD_Connection* connection, const char* path, const char* method,
                  const char* /*version*/, const char* data, std::size_t* size, void** state) try {
    auto& self = *static_cast<Server*>(server);
    if (*state == nullptr) return Begin(self, connection, path, method, state);
    auto& upload = *static_cast<Upload*>(*state);
    if (*size > 0) {
        upload.Take(data, *size);
        *size = 0;
        return MHD_YES;
    }
    const int descriptor = DescriptorOf(connection);
    self.connections().Arrived(descriptor);
    const Answer answer = upload.Carry(self.services());
    self.connections().Answered(descriptor);
    return Send(connection, answer.later ? MHD_HTTP_SERVICE_UNAVAILABLE : MHD_HTTP_OK, answer.text);
} catch (const std::exception& error) {
    // No exception may pass through the library, which is written in C. It closes the connection.
    Log(std::string("answering a query: ") + error.what());
    return MHD_NO;
}

void End(void* /*server*/, MHD_Connection* /*connection*/, void** state, MHD_RequestTerminationCode /*why*/) {
    delete static_cast<Upload*>(*state);
    *state = nullptr;
}

/// Called when a connection is there, before anything is read, and again before it is closed.
void Note(void* server, MHD_Connection* connection, void** /*state*/,
          MHD_ConnectionNotificationCode code) try {
    auto& self = *static_cast<Server*>(server);
    auto& connections = self.connections();
    const int descriptor = DescriptorOf(connection);
    if (code == MHD_CONNECTION_NOTIFY_CLOSED) {
        connections.Closed(descriptor);
    } else {
        connections.Open(descriptor, CallerOf(descriptor, self.groups()));
    }
} catch (const std::exception& error) {
    Log(std::string("a connection: ") + error.what());
}

}  // namespace

Server::Server(Services& services, ServiceSocket& socket)
    : services_(services), socket_(socket), listener_(socket.ReleaseListener()) {
    // The library's own time limit would count the time that our answer takes, and begin anew with each byte.
    constexpr unsigned kFlags = MHD_USE_POLL_INTERNAL_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_ITC;
    daemon_ = MHD_start_daemon(kFlags, 0, nullptr, nullptr, &Handle, this,  //
                               MHD_OPTION_LISTEN_SOCKET, listener_,         //
                               MHD_OPTION_CONNECTION_LIMIT, kConnections,   //
                               MHD_OPTION_NOTIFY_CONNECTION, &Note, this,   //
                               MHD_OPTION_NOTIFY_COMPLETED, &End, nullptr,  //
                               MHD_OPTION_END);
    if (daemon_ == nullptr) throw Error(Code::kIo, "cannot serve on " + socket.path().string());
}

Server::~Server() {
    socket_.outlives_service() ? LeaveSocket() : socket_.Unlink();
    Drain();
    MHD_stop_daemon(daemon_);
}

void Server::LeaveSocket() {
    listener_ = -1;
    ::close(MHD_quiesce_daemon(daemon_));
}

void Server::Drain() {
    connections_.EndWithin(kDrainUploads);
    const auto end = steady_clock::now() + kDrainQueries;
    while (HasCallers() && steady_clock::now() < end) std::this_thread::sleep_for(kDrainPause);
}

bool Server::HasCallers() {
    pollfd waiting{listener_, POLLIN, 0};  // one that is left, -1, is never ready
    const auto* info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_CURRENT_CONNECTIONS);
    return ::poll(&waiting, 1, 0) > 0 || connections_.Count() > 0 ||
           (info != nullptr && info->num_connections > 0);
}

}  // namespace zelvek
