#pragma once

#include <memory>
#include <string>

#include "zelvek/metrics/metrics.h"
#include "zelvek/store/store.h"

namespace zelvek::metrics {

/// A small web server for one machine's Prometheus: GET and HEAD of /metrics give what `Text` has, everything
/// else 404. Names of certificates and users are in it, so it is for this machine alone.
class Endpoint {
public:
    /// Listens until destroyed. `address` is "127.0.0.1:9117" or "[::1]:9117". Errors: as `CheckAddress`, and
    /// Error of code kIo (cannot listen).
    Endpoint(Store& store, const std::string& address, const Settings& settings);
    ~Endpoint();
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    /// Other settings from the next look on. Safe from any thread.
    void Change(const Settings& settings);

    /// The port that it listens on, chosen by the system where `address` has port 0.
    int Port() const;

private:
    struct Server;
    std::unique_ptr<Server> server_;
};

/// Errors: Error of code kValue for an address that other machines can reach, or that is none.
void CheckAddress(const std::string& address);

}  // namespace zelvek::metrics
