#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <ostream>
#include <string>

namespace vek_rpc {

/// One HTTP exchange on a connection of its own. TLS 1.2 or later with peer and host verified against the
/// system's trusted roots (or the PEM file that VEK_CA_FILE names); HTTP/1.1; only https and http URLs;
/// redirects are answers like any other; no proxy from the environment; limits on connecting, stalling, total
/// time and size. Errors of `Get` and `Post`: a std::exception whose what() says which host and what failed,
/// where the exchange could not be carried out; vek_proc::Interrupted.
class HttpQuery {
public:
    HttpQuery();
    ~HttpQuery();
    HttpQuery(const HttpQuery&) = delete;
    HttpQuery& operator=(const HttpQuery&) = delete;

    /// Adds one request header line, "Name: value".
    void AddHeader(const std::string& line);

    /// The final response's header block (status line to blank line, as received) is written ahead of the
    /// body.
    void AcceptHeader();

    /// Every status is a result; without this a status of 400 or more is an error.
    void AcceptAnyResponse();

    /// Connects to this address, IPv4 or IPv6, in the place of those that the URL's host has; a redirect, a
    /// certificate and the request's host stay those of the URL. Errors: vek_err::Error("http", "address",
    /// text) for what is no numeric address.
    void ConnectTo(const std::string& address);

    /// The exchange may take so long, and its answer have so many bytes of header and as many of body. More
    /// is an error.
    void Limit(std::chrono::seconds total, std::size_t bytes);

    void Get(const std::string& url, std::ostream& out);
    void Post(const std::string& url, const std::string& data, std::ostream& out);

    /// Status of the last exchange's final response; 0 before one.
    int Status() const;

private:
    struct Exchange;
    std::unique_ptr<Exchange> exchange_;
};

}  // namespace vek_rpc
