#include "vek/client.h"

#include <cstdlib>

#include "curl.h"
#include "local_socket.h"
#include "sigpipe.h"
#include "vek/err.h"

namespace vek_client {
namespace {

constexpr std::chrono::seconds kPatience{5};
constexpr long kTimeLimit = 600;  // seconds for one query; a service that installs may run slow commands
constexpr std::size_t kHeaderLimit = 256UL << 10;
constexpr std::size_t kBodyLimit = 64UL << 20;
constexpr int kOk = 200;

std::string SocketOf(const std::string& service) {
    const char* directory = std::getenv("VEK_RUN_DIR");
    const bool is_set = directory != nullptr && *directory != '\0';
    return (is_set ? directory : "/run/vek") + ("/" + service + ".sock");
}

// libcurl gets a socket that is connected already: only our own connecting tells a refusal from everything
// else.
curl_socket_t HandOver(void* fd, curlsocktype /*purpose*/, curl_sockaddr* /*address*/) {
    return static_cast<Fd*>(fd)->Release();
}

int IsConnected(void* /*unused*/, curl_socket_t /*socket*/, curlsocktype /*purpose*/) {
    return CURL_SOCKOPT_ALREADY_CONNECTED;
}

}  // namespace

Client::Client(std::string service, std::string module)
    : service_(std::move(service)), module_(std::move(module)) {}

Result Client::Send(const std::string& query) const {
    const SigpipeBlocked no_sigpipe;
    const std::string path = SocketOf(service_);
    Fd socket = Connect(path, kPatience);
    vek_curl::Answer answer{.header_limit = kHeaderLimit, .body_limit = kBodyLimit};
    vek_curl::Easy easy;
    easy.Set(CURLOPT_URL, "http://localhost/");
    easy.Set(CURLOPT_UNIX_SOCKET_PATH, path.c_str());
    easy.Set(CURLOPT_OPENSOCKETFUNCTION, &HandOver);
    easy.Set(CURLOPT_OPENSOCKETDATA, &socket);
    easy.Set(CURLOPT_SOCKOPTFUNCTION, &IsConnected);
    easy.Set(CURLOPT_TIMEOUT, kTimeLimit);
    easy.AddHeader("Content-Type: application/x-www-form-urlencoded");
    easy.AddHeader("X-Vek-Module: " + module_);
    easy.Post(query);
    easy.Receive(answer);
    const CURLcode outcome = curl_easy_perform(easy.get());
    if (outcome != CURLE_OK)
        throw vek_err::Error("client", "protocol", service_ + ": " + easy.Reason(outcome));
    if (easy.Status() != kOk) {
        throw vek_err::Error("client", "protocol", service_ + ": status " + std::to_string(easy.Status()));
    }
    return Result(answer.body);
}

}  // namespace vek_client
