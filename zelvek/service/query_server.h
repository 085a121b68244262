#pragma once

#include <atomic>

#include "zelvek/panel/functions.h"
#include "zelvek/service/socket.h"

struct MHD_Daemon;

namespace zelvek {

/// Answers queries on the service's socket: HTTP, `POST /` with the query as a form. A thread for each
/// connection: an installation that waits for its reload command keeps nobody else waiting.
class Server {
public:
    /// Errors: Error.
    Server(Services& services, ServiceSocket& socket);

    /// Takes no new connections, lets the queries under way be answered, and ends.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// What a query may have, in bytes.
    static constexpr std::size_t kBodyLimit = std::size_t{8} << 20;

    Services& services() { return services_; }
    std::atomic<int>& active() { return active_; }

private:
    void Drain();

    Services& services_;
    ServiceSocket& socket_;
    int listener_;                // the daemon closes it
    std::atomic<int> active_{0};  // queries that have begun to arrive and are not answered
    MHD_Daemon* daemon_ = nullptr;
};

}  // namespace zelvek
