#pragma once

#include "zelvek/panel/functions.h"
#include "zelvek/service/connections.h"
#include "zelvek/service/socket.h"

struct MHD_Daemon;

namespace zelvek {

/// Answers queries on the service's socket: HTTP, `POST /` with the query as a form. Each connection has a
/// thread, so that nobody waits for the reload command of somebody else's installation, and as many and as
/// long as `Connections` says.
class Server {
public:
    /// Errors: Error.
    Server(Services& services, ServiceSocket& socket);

    /// Takes no new connections, lets the queries that have arrived be answered, and ends. Connections that
    /// are not taken yet wait for the next service, where the socket is a service manager's.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// The greatest length of a query in bytes.
    static constexpr std::size_t kBodyLimit = std::size_t{8} << 20;

    /// The same of a caller who may only read, and has nothing long to say.
    static constexpr std::size_t kReadersLimit = std::size_t{64} << 10;

    Services& services() { return services_; }
    Connections& connections() { return connections_; }
    const Groups& groups() const { return socket_.groups(); }

private:
    /// Leaves the socket to whoever has it after this service.
    void LeaveSocket();

    /// Waits until the queries that have arrived are answered.
    void Drain();

    /// Whether somebody is connected, or about to be.
    bool HasCallers();

    Services& services_;
    ServiceSocket& socket_;
    int listener_;  // the daemon closes it; -1 once it is left
    Connections connections_;
    MHD_Daemon* daemon_ = nullptr;
};

}  // namespace zelvek
