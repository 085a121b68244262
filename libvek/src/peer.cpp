#include "peer.h"

#include <sys/socket.h>
#include <unistd.h>

namespace vek_client {

namespace {

// The system's first process holds the socket of a service that it is about to start, and lets nobody but
// root put it there. From the service's first start on its own user is seen.
bool IsManager(const ucred& listener) { return listener.pid == 1 && listener.uid == 0; }

}  // namespace

Peer::Peer(vek_curl::Easy& transfer, std::optional<uid_t> service_user) : service_user_(service_user) {
    transfer.Set(CURLOPT_OPENSOCKETFUNCTION, &Open);
    transfer.Set(CURLOPT_OPENSOCKETDATA, this);
    transfer.Set(CURLOPT_PREREQFUNCTION, &Check);
    transfer.Set(CURLOPT_PREREQDATA, this);
}

curl_socket_t Peer::Open(void* self, curlsocktype /*purpose*/, curl_sockaddr* address) {
    const int made = socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    static_cast<Peer*>(self)->socket_ = made;
    return made;
}

int Peer::Check(void* self, char* /*far_ip*/, char* /*near_ip*/, int /*far_port*/, int /*near_port*/) {
    auto& peer = *static_cast<Peer*>(self);
    ucred service{};
    socklen_t size = sizeof(service);
    if (getsockopt(peer.socket_, SOL_SOCKET, SO_PEERCRED, &service, &size) != 0) return CURL_PREREQFUNC_ABORT;
    if (service.uid == geteuid() || service.uid == peer.service_user_ || IsManager(service))
        return CURL_PREREQFUNC_OK;
    peer.stranger_ = service.uid;
    return CURL_PREREQFUNC_ABORT;
}

}  // namespace vek_client
