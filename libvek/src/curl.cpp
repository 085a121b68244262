#include "curl.h"

#include <exception>
#include <new>

#include "openssl_setup.h"
#include "vek/err.h"

namespace vek_curl {
namespace {

// Prepares libcurl and never cleans it up: static objects still send queries when `main` has returned.
void PrepareOnce() {
    static const CURLcode prepared = [] {
        vek_openssl::KeepUntilExit();
        return curl_global_init(CURL_GLOBAL_DEFAULT);
    }();
    if (prepared != CURLE_OK) throw vek_err::Error("curl", "setup", curl_easy_strerror(prepared));
}

// The status' first digit stands after the first blank of the status line (RFC 9112 section 4).
bool IsInformational(const std::string& header) {
    const auto blank = header.find(' ');
    return blank != std::string::npos && header.compare(blank + 1, 1, "1") == 0;
}

bool IsBlank(const std::string& line) { return line == "\r\n" || line == "\n"; }

bool Fits(Answer& answer, std::size_t has, std::size_t more, std::size_t limit) {
    answer.too_large = answer.too_large || more > limit - has;
    return !answer.too_large;
}

// libcurl's callbacks: any other count than `size` ends the transfer. No exception may cross libcurl.
std::size_t TakeHeader(const char* data, std::size_t /*one*/, std::size_t size, void* to) try {
    auto& answer = *static_cast<Answer*>(to);
    const std::string line(data, size);
    if (answer.header_complete && IsInformational(answer.header)) {
        answer.header.clear();
        answer.header_complete = false;
    }
    if (answer.header_complete) return size;
    if (!Fits(answer, answer.header.size(), size, answer.header_limit)) return 0;
    answer.header += line;
    answer.header_complete = IsBlank(line);
    return size;
} catch (const std::exception&) {
    return 0;
}

std::size_t TakeBody(const char* data, std::size_t /*one*/, std::size_t size, void* to) try {
    auto& answer = *static_cast<Answer*>(to);
    if (!Fits(answer, answer.body.size(), size, answer.body_limit)) return 0;
    answer.body.append(data, size);
    return size;
} catch (const std::exception&) {
    return 0;
}

}  // namespace

Easy::Easy() : handle_((PrepareOnce(), curl_easy_init())) {
    if (!handle_) throw std::bad_alloc();
    Set(CURLOPT_ERRORBUFFER, error_);
    Set(CURLOPT_NOSIGNAL, 1L);
    Set(CURLOPT_PROXY, "");
    Set(CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
    Set(CURLOPT_FRESH_CONNECT, 1L);
    Set(CURLOPT_FORBID_REUSE, 1L);
    // A look-up that hangs in its own thread must not hold up the end of the transfer.
    Set(CURLOPT_QUICK_EXIT, 1L);
    // Keeps libcurl from asking the server whether it may send a large body: no server we talk to needs that,
    // and one that does not answer costs a second.
    AddHeader("Expect:");
}

void Easy::Require(CURLcode code) {
    if (code != CURLE_OK) throw vek_err::Error("curl", "setup", curl_easy_strerror(code));
}

void Easy::AddHeader(const std::string& line) {
    curl_slist* longer = curl_slist_append(headers_.get(), line.c_str());
    if (longer == nullptr) throw std::bad_alloc();
    [[maybe_unused]] const auto* shorter = headers_.release();  // part of the longer one
    headers_.reset(longer);
    Set(CURLOPT_HTTPHEADER, longer);
}

void Easy::Post(const std::string& data) {
    Set(CURLOPT_POST, 1L);
    Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(data.size()));
    Set(CURLOPT_COPYPOSTFIELDS, data.c_str());
}

void Easy::ConnectTo(const std::string& address) {
    const bool ipv6 = address.find(':') != std::string::npos;
    // Whatever host and port the URL has, this address and the same port.
    const std::string rule = "::" + (ipv6 ? "[" + address + "]" : address) + ":";
    connect_to_.reset(curl_slist_append(nullptr, rule.c_str()));
    if (!connect_to_) throw std::bad_alloc();
    Set(CURLOPT_CONNECT_TO, connect_to_.get());
}

void Easy::Receive(Answer& answer) {
    answer_ = &answer;
    Set(CURLOPT_HEADERFUNCTION, &TakeHeader);
    Set(CURLOPT_HEADERDATA, &answer);
    Set(CURLOPT_WRITEFUNCTION, &TakeBody);
    Set(CURLOPT_WRITEDATA, &answer);
}

int Easy::Status() const {
    long status = 0;
    curl_easy_getinfo(get(), CURLINFO_RESPONSE_CODE, &status);
    return static_cast<int>(status);
}

int Easy::SystemError() const {
    long error = 0;
    curl_easy_getinfo(get(), CURLINFO_OS_ERRNO, &error);
    return static_cast<int>(error);
}

std::string Easy::Reason(CURLcode code) const {
    if (answer_ != nullptr && answer_->too_large) return "the answer is too large";
    return error_[0] != '\0' ? error_ : curl_easy_strerror(code);
}

}  // namespace vek_curl
