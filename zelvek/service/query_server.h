#pragma once

#include <atomic>

#include "zelvek/panel/functions.h"
#include "zelvek/service/socket.h"

struct MHD_Daemon;

namespace zelvek {

/// Answers queries on the service's socket: HTTP, `POST /` with the query as a form. Each connection has a
/// thread, so that nobody waits for the reload command of somebody else's installation.
class Server {
public:
    /// Errors: Error.
    Server(Services& services, ServiceSocket& socket);

    /// Takes no new connections, lets the queries under way be answered, and ends.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// The greatest length of a query in bytes.
    static constexpr std::size_t kBodyLimit = std::size_t{8} << 20;

    Services& services() { return services_; }
    std::atomic<int>& active() { return active_; }

private:
    /// Waits until the queries under way are answered.
    void Drain();

    Services& services_;
    ServiceSocket& socket_;
    int listener_;                // the daemon closes it
    std::atomic<int> active_{0};  // queries that have begun to arrive and are not answered yet
    MHD_Daemon* daemon_ = nullptr;
};

}  // namespace zelvek
