#include "exchange.h"

#include <cstdlib>
#include <memory>

#include "curl.h"
#include "exchange_share.h"
#include "interrupt.h"
#include "sigpipe.h"
#include "trust.h"
#include "vek/err.h"
#include "vek/str.h"

namespace vek_rpc {
namespace {

using vek_curl::Easy;

[[noreturn]] void Fail(const std::string& code, const std::string& reason) {
    throw vek_err::Error("http", code, reason);
}

std::string PartOf(CURLU* url, CURLUPart part) {
    char* text = nullptr;
    if (curl_url_get(url, part, &text, 0) != CURLUE_OK) return {};
    const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
    return text;
}

// The host of an http or https URL; anything else is refused before anything is sent.
std::string HostOf(const std::string& url) {
    const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parsed(curl_url(), &curl_url_cleanup);
    const bool is_url = url.find('\0') == std::string::npos &&
                        curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) == CURLUE_OK;
    const std::string scheme = is_url ? str::Lower(PartOf(parsed.get(), CURLUPART_SCHEME)) : "";
    if (scheme != "http" && scheme != "https") Fail("url", "\"" + url + "\" is no http or https URL");
    return PartOf(parsed.get(), CURLUPART_HOST);
}

// Parsing the whole store takes longer than a handshake. A hashed folder needs no parsing; a file is parsed
// once, because libcurl keeps the result in the multi handle (only where no folder is set as well).
void SetTrust(Easy& easy) {
    easy.Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    easy.Set(CURLOPT_SSL_VERIFYPEER, 1L);
    easy.Set(CURLOPT_SSL_VERIFYHOST, 2L);
    const char* file = std::getenv("VEK_CA_FILE");
    const bool is_set = file != nullptr && *file != '\0';
    const char* system_folder = curl_version_info(CURLVERSION_NOW)->capath;
    if (!is_set && IsHashed(system_folder)) {
        easy.Set(CURLOPT_CAINFO, static_cast<const char*>(nullptr));
        return;
    }
    if (is_set) easy.Set(CURLOPT_CAINFO, file);
    easy.Set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    easy.Set(CURLOPT_CA_CACHE_TIMEOUT, -1L);
}

void SetLimits(Easy& easy, const Limits& limits) {
    easy.Set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(limits.connect.count()));
    easy.Set(CURLOPT_LOW_SPEED_LIMIT, 1L);
    easy.Set(CURLOPT_LOW_SPEED_TIME, static_cast<long>(limits.stall.count()));
    easy.Set(CURLOPT_TIMEOUT, static_cast<long>(limits.total.count()));
}

void SetRequest(Easy& easy, const Request& request) {
    easy.Set(CURLOPT_URL, request.url.c_str());
    easy.Set(CURLOPT_PROTOCOLS_STR, "http,https");
    easy.Set(CURLOPT_FOLLOWLOCATION, 0L);
    easy.Set(CURLOPT_USERAGENT, "libvek/" VEK_VERSION);
    for (const auto& line : request.headers) {
        if (line.find_first_of(std::string("\r\n\0", 3)) != std::string::npos)
            Fail("header", "a line break in " + line);
        easy.AddHeader(line);
    }
    if (request.content != nullptr) easy.Post(*request.content);
    if (!request.address.empty()) easy.ConnectTo(request.address);
}

// A transfer that runs in a multi handle, and leaves it however it ends.
class Transfer {
public:
    Transfer(CURLM* multi, CURL* easy) : multi_(multi), easy_(easy) {
        Require(curl_multi_add_handle(multi, easy));
    }
    ~Transfer() { curl_multi_remove_handle(multi_, easy_); }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    CURLcode Run() {
        constexpr int kLongestWait = 1000;  // libcurl's own timers end it earlier
        curl_waitfd wake[] = {{vek_interrupt::WakeFd(), CURL_WAIT_POLLIN, 0}};
        const unsigned wakes = wake[0].fd >= 0 ? std::size(wake) : 0;
        for (int running = 1;;) {
            vek_interrupt::Check();
            Require(curl_multi_perform(multi_, &running));
            if (running == 0) return Outcome();
            Require(curl_multi_poll(multi_, wake, wakes, kLongestWait, nullptr));
        }
    }

private:
    static void Require(CURLMcode code) {
        if (code != CURLM_OK) Fail("exchange", curl_multi_strerror(code));
    }

    CURLcode Outcome() {
        int left = 0;
        const CURLMsg* message = curl_multi_info_read(multi_, &left);
        return message != nullptr ? message->data.result : CURLE_FAILED_INIT;
    }

    CURLM* multi_;
    CURL* easy_;
};

}  // namespace

Response Carry(const Request& request, const Limits& limits) {
    const vek_proc::SigpipeBlocked no_sigpipe;
    const std::string host = HostOf(request.url);
    vek_curl::Answer answer{.header_limit = limits.header, .body_limit = limits.body};
    Easy easy;
    SetRequest(easy, request);
    SetTrust(easy);
    SetLimits(easy, limits);
    easy.Set(CURLOPT_SHARE, Share());
    easy.Receive(answer);
    const Multi multi;
    const CURLcode outcome = Transfer(multi.get(), easy.get()).Run();
    if (outcome != CURLE_OK) Fail("exchange", host + ": " + easy.Reason(outcome));
    return {easy.Status(), std::move(answer.header), std::move(answer.body)};
}

}  // namespace vek_rpc
