#include "proxy.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string_view>

namespace zelvek::testing {

namespace {

constexpr const char* kName = ".s.PGSQL.5432";
constexpr int kTick = 20;  // milliseconds

sockaddr_un AddressOf(const std::filesystem::path& folder) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (folder / kName).string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

int Socket() { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }

const sockaddr* Generic(const sockaddr_un& address) {
    return static_cast<const sockaddr*>(static_cast<const void*>(&address));
}

/// What has arrived within a tick; says whether the connection goes on.
bool Receive(int from, std::string& data) {
    std::array<char, 65536> buffer{};
    pollfd waiting{from, POLLIN, 0};
    data.clear();
    if (::poll(&waiting, 1, kTick) <= 0) return true;
    const ssize_t size = ::recv(from, buffer.data(), buffer.size(), 0);
    if (size <= 0) return false;
    data.assign(buffer.data(), static_cast<std::size_t>(size));
    return true;
}

bool Send(int to, const std::string& data) {
    return data.empty() ||
           ::send(to, data.data(), data.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(data.size());
}

/// The library's simple query with this text alone.
bool IsCommit(const std::string& data) {
    return data == std::string(
                       "Q\0\0\0\x0b"
                       "COMMIT\0",
                       12);
}

}  // namespace

Proxy::Proxy(const std::filesystem::path& server_folder) : server_(server_folder) {
    std::string pattern = (std::filesystem::temp_directory_path() / "zelvek-px.XXXXXX").string();
    folder_ = ::mkdtemp(pattern.data());
    listener_ = Socket();
    const sockaddr_un address = AddressOf(folder_);
    constexpr int kWaiting = 8;
    if (::bind(listener_, Generic(address), sizeof(address)) != 0 || ::listen(listener_, kWaiting) != 0)
        std::abort();
    thread_ = std::jthread([this] { Serve(); });
}

Proxy::~Proxy() {
    end_ = true;
    thread_.join();
    ::close(listener_);
    std::filesystem::remove_all(folder_);
}

void Proxy::Serve() {
    while (!end_) {
        pollfd waiting{listener_, POLLIN, 0};
        if (::poll(&waiting, 1, kTick) <= 0) continue;
        const int client = ::accept(listener_, nullptr, nullptr);
        Carry(client);
        ::close(client);
    }
}

void Proxy::Carry(int client) {
    const int server = Socket();
    const sockaddr_un address = AddressOf(server_);
    bool open = ::connect(server, Generic(address), sizeof(address)) == 0;
    bool losing = false;
    std::string data;
    while (open && !end_) {
        open = Receive(client, data);
        const bool commit = lose_ != kNothing && IsCommit(data);
        if (commit && lose_.exchange(kNothing) == kCommit) break;
        losing = losing || commit;
        open = open && Send(server, data) && Receive(server, data);
        if (losing && !data.empty()) break;
        open = open && Send(client, data);
    }
    ::close(server);
}

}  // namespace zelvek::testing
