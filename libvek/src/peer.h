#pragma once

#include <sys/types.h>

#include <optional>

#include "curl.h"

namespace vek_client {

/// The other end of one transfer's unix socket, looked at when the connection is made and before anything is
/// said on it: a service of another user than this process's, or than `service_user`, is told nothing; a
/// socket of the system's first process is a service's that is being started. For one transfer, which ends
/// before it.
class Peer {
public:
    Peer(vek_curl::Easy& transfer, std::optional<uid_t> service_user);
    // Neither copied nor moved: libcurl holds its address.
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// Another user's id, where the service is that user's; the transfer has failed then.
    std::optional<uid_t> stranger() const { return stranger_; }

private:
    static curl_socket_t Open(void* self, curlsocktype purpose, curl_sockaddr* address);
    static int Check(void* self, char* far_ip, char* near_ip, int far_port, int near_port);

    int socket_ = -1;
    std::optional<uid_t> service_user_;
    std::optional<uid_t> stranger_;
};

}  // namespace vek_client
