#include "vek/rpc.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>

#include "exchange.h"
#include "vek/err.h"

namespace vek_rpc {
namespace {

constexpr int kFirstErrorStatus = 400;

bool IsAddress(const std::string& text) {
    std::array<unsigned char, sizeof(in6_addr)> bytes{};
    if (text.find('\0') != std::string::npos) return false;
    return inet_pton(AF_INET, text.c_str(), bytes.data()) == 1 ||
           inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1;
}

}  // namespace

struct HttpQuery::Exchange {
    void Run(const std::string& url, const std::string* content, std::ostream& out);

    std::vector<std::string> headers;
    std::string address;
    Limits limits;
    bool accepts_header = false;
    bool accepts_any = false;
    int status = 0;
};

void HttpQuery::Exchange::Run(const std::string& url, const std::string* content, std::ostream& out) {
    status = 0;
    const Response response = Carry({url, headers, content, address}, limits);
    status = response.status;
    if (!accepts_any && status >= kFirstErrorStatus) {
        throw vek_err::Error("http", "status", url + " answered with status " + std::to_string(status));
    }
    if (accepts_header) out << response.header;
    out << response.body;
}

HttpQuery::HttpQuery() : exchange_(std::make_unique<Exchange>()) {}
HttpQuery::~HttpQuery() = default;

void HttpQuery::AddHeader(const std::string& line) { exchange_->headers.push_back(line); }
void HttpQuery::AcceptHeader() { exchange_->accepts_header = true; }
void HttpQuery::AcceptAnyResponse() { exchange_->accepts_any = true; }
void HttpQuery::ConnectTo(const std::string& address) {
    if (!IsAddress(address)) throw vek_err::Error("http", "address", "\"" + address + "\" is no address");
    exchange_->address = address;
}
void HttpQuery::Limit(std::chrono::seconds total, std::size_t bytes) {
    exchange_->limits.total = total;
    exchange_->limits.connect = std::min(exchange_->limits.connect, total);
    exchange_->limits.header = bytes;
    exchange_->limits.body = bytes;
}
void HttpQuery::Get(const std::string& url, std::ostream& out) { exchange_->Run(url, nullptr, out); }
void HttpQuery::Post(const std::string& url, const std::string& data, std::ostream& out) {
    exchange_->Run(url, &data, out);
}
int HttpQuery::Status() const { return exchange_->status; }

}  // namespace vek_rpc
