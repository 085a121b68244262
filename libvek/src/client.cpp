#include "vek/client.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <system_error>
#include <utility>

#include "curl.h"
#include "end.h"
#include "patience.h"
#include "peer.h"
#include "sigpipe.h"
#include "vek/err.h"
#include "vek/str.h"

namespace vek_client {
namespace {

constexpr long kTimeLimit = 600;  // seconds for one query; a service that installs may run slow commands
constexpr std::size_t kHeaderLimit = 256UL << 10;
constexpr std::size_t kBodyLimit = 64UL << 20;
constexpr int kOk = 200;
constexpr int kLater = 503;  // the service cannot do it now, and has done nothing
constexpr std::size_t kIdentityBytes = 16;

/// One query as it goes out, the same each time.
struct Letter {
    std::string socket;
    std::string module;
    std::string identity;
    std::string query;
    std::optional<uid_t> service_user;  // who may have the service beside this process's user
};

/// What became of one try: an answer, or an error.
struct Outcome {
    std::string answer = {};
    std::optional<vek_err::Error> error = {};
    bool may_pass = false;   // the error: trying again is safe, and may help
    bool unreached = false;  // the error: nobody was there
};

std::string SocketOf(const std::string& service) {
    const char* directory = std::getenv("VEK_RUN_DIR");
    const bool is_set = directory != nullptr && *directory != '\0';
    return (is_set ? directory : "/run/vek") + ("/" + service + ".sock");
}

// Whether the failure came before there was a connection. libcurl calls a socket path that is too long a host
// that it cannot resolve.
bool IsUnreached(CURLcode code) {
    return code == CURLE_COULDNT_CONNECT || code == CURLE_COULDNT_RESOLVE_HOST;
}

// A service that restarts has no socket, or one that nobody listens on, for a moment; one that dies resets
// the connections that it has not taken yet; one with many callers at once cannot take one more (libcurl
// knows no error number then).
bool IsAwayForNow(const vek_curl::Easy& easy, CURLcode code) {
    const int error = easy.SystemError();
    return code == CURLE_COULDNT_CONNECT &&
           (error == ENOENT || error == ECONNREFUSED || error == ECONNRESET || error == 0);
}

// Whether the connection ended before the whole answer was there. The service may have carried the query out,
// or not: it knows by the query's identity.
bool IsBrokenOff(CURLcode code) {
    return code == CURLE_SEND_ERROR || code == CURLE_RECV_ERROR || code == CURLE_GOT_NOTHING ||
           code == CURLE_PARTIAL_FILE;
}

// The system's reason where there is one: libcurl's own speaks of port 80, which a socket does not have.
std::string Cause(const vek_curl::Easy& easy, CURLcode code) {
    const int error = easy.SystemError();
    if (error != 0) return std::generic_category().message(error);
    return IsUnreached(code) ? "the service takes no more connections" : easy.Reason(code);
}

vek_err::Error Failure(const char* type, const Letter& letter, const std::string& reason) {
    return {"client", type, letter.socket + ": " + reason};
}

// What the service says for people in an answer with another status than 200.
vek_err::Error Refusal(const Letter& letter, int status, const std::string& body) {
    try {
        const vek_xml::Xml answer(body);
        const auto error = answer.GetNode("/doc/error");
        const std::string sentence = error.Value("msg");
        if (!sentence.empty()) return vek_err::Error::Reported(error.Attribute("type"), sentence);
    } catch (const vek_err::Error&) {
        // A body that is no XML says nothing.
    }
    return Failure("protocol", letter, "status " + std::to_string(status));
}

std::string Strange(uid_t service, const std::optional<uid_t>& expected) {
    const std::string users =
        "the service has user id " + std::to_string(service) + ", this process " + std::to_string(geteuid());
    if (!expected) return users + ": only a service of the same user is asked";
    return users + ": only a service of the same user or of user id " + std::to_string(*expected) +
           " is asked";
}

void Write(vek_curl::Easy& easy, const Letter& letter) {
    easy.Set(CURLOPT_URL, "http://localhost/");
    easy.Set(CURLOPT_UNIX_SOCKET_PATH, letter.socket.c_str());
    easy.Set(CURLOPT_TIMEOUT, kTimeLimit);
    easy.AddHeader("Content-Type: application/x-www-form-urlencoded");
    easy.AddHeader("X-Vek-Module: " + letter.module);
    easy.AddHeader("X-Vek-Query: " + letter.identity);
    easy.Post(letter.query);
}

Outcome TryOnce(const Letter& letter) {
    vek_curl::Answer answer{.header_limit = kHeaderLimit, .body_limit = kBodyLimit};
    vek_curl::Easy easy;
    Peer peer(easy, letter.service_user);
    Write(easy, letter);
    easy.Receive(answer);
    const CURLcode code = curl_easy_perform(easy.get());
    if (const auto stranger = peer.stranger())
        return {.error = Failure("connect", letter, Strange(*stranger, letter.service_user))};
    if (IsUnreached(code)) {
        return {.error = Failure("connect", letter, Cause(easy, code)),
                .may_pass = IsAwayForNow(easy, code),
                .unreached = true};
    }
    if (code != CURLE_OK)
        return {.error = Failure("protocol", letter, easy.Reason(code)), .may_pass = IsBrokenOff(code)};
    // libcurl takes the end of a connection for the end of the headers.
    if (!answer.header_complete)
        return {.error = Failure("protocol", letter, "the answer breaks off"), .may_pass = true};
    if (const int status = easy.Status(); status != kOk)
        return {.error = Refusal(letter, status, answer.body), .may_pass = status == kLater};
    return {.answer = std::move(answer.body)};
}

}  // namespace

Client::Client(std::string service, std::string module, std::optional<UserId> service_user)
    : service_(std::move(service)), module_(std::move(module)), service_user_(service_user) {}

Result Client::Send(const std::string& query) const {
    const vek_proc::SigpipeBlocked no_sigpipe;
    const Letter letter{SocketOf(service_), module_, str::hex::Encode(str::Random(kIdentityBytes)), query,
                        service_user_};
    Patience patience(query);
    const std::atomic_ref<Found> found(found_);
    vek_end::NoteQuery();
    if (vek_end::HasNothingToStore() && found == Found::kUnknown) found = Found::kInVain;
    for (;;) {
        Outcome outcome = TryOnce(letter);
        if (!outcome.unreached) {
            found = Found::kYes;
            vek_end::NoteService();
        }
        if (!outcome.error) return Result(outcome.answer);
        if (outcome.may_pass && found != Found::kInVain && patience.Pause()) continue;
        if (found == Found::kUnknown) found = Found::kInVain;
        throw vek_err::Error(std::move(*outcome.error));
    }
}

}  // namespace vek_client
