#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <memory>
#include <string>

/// What the HTTP client and the client of local services share of libcurl.
namespace vek_curl {

/// An answer as it comes in. Only the final response's header block is kept: not the 1xx ones before it (100,
/// 103), and not the trailers after its body.
struct Answer {
    std::size_t header_limit;
    std::size_t body_limit;
    std::string header{};  // status line to blank line
    std::string body{};
    bool header_complete = false;
    bool too_large = false;
};

/// One transfer's handle: HTTP/1.1 on a connection of its own, nothing taken from the environment or from
/// home folders. Errors: vek_err::Error("curl", "setup", reason).
class Easy {
public:
    Easy();
    // Neither copied nor moved: libcurl holds the address of `error_`.
    Easy(const Easy&) = delete;
    Easy& operator=(const Easy&) = delete;

    CURL* get() const { return handle_.get(); }

    template <class T>
    void Set(CURLoption option, T value) {
        Require(curl_easy_setopt(get(), option, value));
    }

    /// Request lines, "Name: value".
    void AddHeader(const std::string& line);
    void Post(const std::string& data);

    /// Numeric, in the place of the URL's host.
    void ConnectTo(const std::string& address);

    /// Lets the transfer write into `answer`, which has to outlive it.
    void Receive(Answer& answer);

    /// Status of the final response; 0 without one.
    int Status() const;

    /// The system's error number of a connection that failed; 0 for none.
    int SystemError() const;

    /// Why the transfer failed, for people.
    std::string Reason(CURLcode code) const;

private:
    static void Require(CURLcode code);

    struct Free {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
        void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    };

    std::unique_ptr<curl_slist, Free> headers_;  // outlives the handle that reads it
    std::unique_ptr<curl_slist, Free> connect_to_;
    std::unique_ptr<CURL, Free> handle_;
    const Answer* answer_ = nullptr;
    char error_[CURL_ERROR_SIZE] = "";
};

}  // namespace vek_curl
