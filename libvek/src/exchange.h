#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace vek_rpc {

struct Limits {
    std::chrono::seconds connect{30};  // look-up, connection and TLS handshake
    std::chrono::seconds stall{60};    // without a byte
    std::chrono::seconds total{300};
    std::size_t header = 256UL << 10;
    std::size_t body = 16UL << 20;
};

struct Request {
    std::string url;
    std::vector<std::string> headers;      // "Name: value"
    const std::string* content = nullptr;  // POST where there is one
    std::string address{};                 // numeric, to connect to; empty for the host's own
};

struct Response {
    int status = 0;
    std::string header;  // the final response's, status line to blank line
    std::string body;
};

/// One HTTP exchange on a connection of its own. The trust store, looked-up names and TLS session tickets are
/// shared by all exchanges of the process. Errors: vek_err::Error("http", code, reason), code "url", "header"
/// or "exchange"; those of vek_curl::Easy; vek_proc::Interrupted.
Response Carry(const Request& request, const Limits& limits);

}  // namespace vek_rpc
