#include "zelvek/metrics/endpoint.h"

#include <microhttpd.h>

#include <exception>
#include <string_view>

#include "vek/date.h"
#include "zelvek/base/error.h"
#include "zelvek/base/listener.h"
#include "zelvek/base/log.h"
#include "zelvek/base/signals_blocked.h"
#include "zelvek/base/snapshot.h"
#include "zelvek/base/text.h"

namespace zelvek::metrics {

namespace {

constexpr unsigned kConnections = 16;  // one Prometheus needs one, or two where it is set up twice
constexpr unsigned kLimit = 10;        // seconds without a byte
constexpr std::size_t kMemoryOfOneConnection = 8192;
constexpr const char* kType = "text/plain; version=0.0.4; charset=utf-8";

MHD_Result Send(MHD_Connection* connection, unsigned status, const std::string& text) {
    // The library does not change a buffer that it copies; its parameter just lacks the const.
    MHD_Response* response =
        MHD_create_response_from_buffer(text.size(), const_cast<char*>(text.data()), MHD_RESPMEM_MUST_COPY);
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, kType);
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
    const MHD_Result result = MHD_queue_response(connection, status, response);
    MHD_destroy_response(response);
    return result;
}

bool AsksForMetrics(std::string_view method, std::string_view path) {
    return path == "/metrics" && (method == MHD_HTTP_METHOD_GET || method == MHD_HTTP_METHOD_HEAD);
}

}  // namespace

struct Endpoint::Server {
    Store& store;
    Snapshot<Settings> settings;
    MHD_Daemon* daemon = nullptr;

    std::string Metrics() {
        Transaction transaction(store);
        std::string text = Text(transaction, *settings.Get(), vek_date::DateTime().AsDateTime());
        transaction.Commit();
        return text;
    }

    // NOLINTNEXTLINE(readability-function-size): the parameters are the library's
    static MHD_Result Answer(void* self, MHD_Connection* connection, const char* path, const char* method,
                             const char* /*version*/, const char* /*upload*/, std::size_t* /*upload_size*/,
                             void** /*state*/) try {
        if (!AsksForMetrics(method, path)) return Send(connection, MHD_HTTP_NOT_FOUND, "not found\n");
        return Send(connection, MHD_HTTP_OK, static_cast<Server*>(self)->Metrics());
    } catch (const std::exception& error) {
        // No exception may pass through the library, which is written in C.
        Log(std::string("metrics: ") + error.what());
        return Send(connection, MHD_HTTP_INTERNAL_SERVER_ERROR, "the service's log says why\n");
    }
};

Endpoint::Endpoint(Store& store, const std::string& address, const Settings& settings)
    : server_(new Server{store, settings}) {
    CheckAddress(address);
    const SignalsBlocked blocked;
    const int listener = Listen(address).release();  // the daemon closes it
    server_->daemon =
        MHD_start_daemon(MHD_USE_EPOLL_INTERNAL_THREAD | MHD_USE_ITC, 0, nullptr, nullptr, &Server::Answer,
                         server_.get(),                              //
                         MHD_OPTION_LISTEN_SOCKET, listener,         //
                         MHD_OPTION_CONNECTION_LIMIT, kConnections,  //
                         MHD_OPTION_CONNECTION_TIMEOUT, kLimit,      //
                         MHD_OPTION_CONNECTION_MEMORY_LIMIT, kMemoryOfOneConnection, MHD_OPTION_END);
    if (server_->daemon == nullptr) throw Error(Code::kIo, "cannot serve metrics on " + address);
}

Endpoint::~Endpoint() { MHD_stop_daemon(server_->daemon); }

void Endpoint::Change(const Settings& settings) { server_->settings.Set(settings); }

int Endpoint::Port() const {
    const MHD_DaemonInfo* info = MHD_get_daemon_info(server_->daemon, MHD_DAEMON_INFO_BIND_PORT);
    return info == nullptr ? 0 : info->port;
}

void CheckAddress(const std::string& address) {
    if (!IsLoopback(address))
        throw Error(Code::kValue, "--metrics-listen: other machines can reach " + Printable(address) +
                                      "; 127.0.0.1:PORT and [::1]:PORT are for this one alone");
}

}  // namespace zelvek::metrics
