#include "vek/rpc.h"

#include "exchange.h"
#include "vek/err.h"

namespace vek_rpc {
namespace {

constexpr int kFirstErrorStatus = 400;

}  // namespace

struct HttpQuery::Exchange {
    void Run(const std::string& url, const std::string* content, std::ostream& out);

    std::vector<std::string> headers;
    bool accepts_header = false;
    bool accepts_any = false;
    int status = 0;
};

void HttpQuery::Exchange::Run(const std::string& url, const std::string* content, std::ostream& out) {
    status = 0;
    const Response response = Carry({url, headers, content}, Limits{});
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
void HttpQuery::Get(const std::string& url, std::ostream& out) { exchange_->Run(url, nullptr, out); }
void HttpQuery::Post(const std::string& url, const std::string& data, std::ostream& out) {
    exchange_->Run(url, &data, out);
}
int HttpQuery::Status() const { return exchange_->status; }

}  // namespace vek_rpc
