#include "vek/client.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <system_error>
#include <thread>

#include "curl.h"
#include "sigpipe.h"
#include "vek/err.h"
#include "vek/str.h"

namespace vek_client {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{5};  // with a service that is not there
constexpr std::chrono::milliseconds kPause{50};
constexpr long kTimeLimit = 600;  // seconds for one query; a service that installs may run slow commands
constexpr std::size_t kHeaderLimit = 256UL << 10;
constexpr std::size_t kBodyLimit = 64UL << 20;
constexpr int kOk = 200;
constexpr std::size_t kIdentityBytes = 16;

std::string SocketOf(const std::string& service) {
    const char* directory = std::getenv("VEK_RUN_DIR");
    const bool is_set = directory != nullptr && *directory != '\0';
    return (is_set ? directory : "/run/vek") + ("/" + service + ".sock");
}

// A service that restarts has no socket, or one that nobody listens on, for a moment; one with many callers
// at once cannot take one more (libcurl knows no error number then). In none of these cases was anything
// sent.
bool MayPass(const vek_curl::Easy& easy, CURLcode outcome) {
    const int error = easy.SystemError();
    return outcome == CURLE_COULDNT_CONNECT && (error == ENOENT || error == ECONNREFUSED || error == 0);
}

CURLcode Perform(const vek_curl::Easy& easy) {
    const auto end = steady_clock::now() + kPatience;
    for (;;) {
        const CURLcode outcome = curl_easy_perform(easy.get());
        if (!MayPass(easy, outcome) || steady_clock::now() >= end) return outcome;
        // Not the interruptible sleep: a run that is being ended still has its record to write back.
        std::this_thread::sleep_for(kPause);
    }
}

// Whether the failure came before there was a connection. libcurl calls a socket path that is too long a host
// that it cannot resolve.
bool IsUnreached(CURLcode outcome) {
    return outcome == CURLE_COULDNT_CONNECT || outcome == CURLE_COULDNT_RESOLVE_HOST;
}

// The system's reason where there is one: libcurl's own speaks of port 80, which a socket does not have.
std::string Cause(const vek_curl::Easy& easy, CURLcode outcome) {
    const int error = easy.SystemError();
    return error != 0 ? std::generic_category().message(error) : easy.Reason(outcome);
}

}  // namespace

Client::Client(std::string service, std::string module)
    : service_(std::move(service)), module_(std::move(module)) {}

Result Client::Send(const std::string& query) const {
    const vek_proc::SigpipeBlocked no_sigpipe;
    const std::string path = SocketOf(service_);
    vek_curl::Answer answer{.header_limit = kHeaderLimit, .body_limit = kBodyLimit};
    vek_curl::Easy easy;
    easy.Set(CURLOPT_URL, "http://localhost/");
    easy.Set(CURLOPT_UNIX_SOCKET_PATH, path.c_str());
    easy.Set(CURLOPT_TIMEOUT, kTimeLimit);
    easy.AddHeader("Content-Type: application/x-www-form-urlencoded");
    easy.AddHeader("X-Vek-Module: " + module_);
    easy.AddHeader("X-Vek-Query: " + str::hex::Encode(str::Random(kIdentityBytes)));
    easy.Post(query);
    easy.Receive(answer);
    const CURLcode outcome = Perform(easy);
    if (IsUnreached(outcome)) throw vek_err::Error("client", "connect", path + ": " + Cause(easy, outcome));
    if (outcome != CURLE_OK)
        throw vek_err::Error("client", "protocol", service_ + ": " + easy.Reason(outcome));
    if (easy.Status() != kOk) {
        throw vek_err::Error("client", "protocol", service_ + ": status " + std::to_string(easy.Status()));
    }
    return Result(answer.body);
}

}  // namespace vek_client
