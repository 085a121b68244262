#include "vek/rpc.h"

#include <cstdint>
#include <string>

#include "double/state.h"
#include "vek/err.h"

namespace vek_rpc {

struct HttpQuery::Exchange {
    bool header = false;
    bool any_status = false;
    int status = 0;
    std::size_t most = SIZE_MAX;  // bytes of an answer's body

    void Carry(const std::string& method, const std::string& url, const std::string* body, std::ostream& out);
};

void HttpQuery::Exchange::Carry(const std::string& method, const std::string& url, const std::string* body,
                                std::ostream& out) {
    const std::string request = method + " " + url;
    vek_double::Enter("http", request);
    if (body) vek_double::Note("body", *body);
    vek_double::ThrowIfInterrupted();
    // As the real one does, with nothing to be scripted for it.
    if (!url.starts_with("https://") && !url.starts_with("http://"))
        throw vek_err::Error("http", "url", "'" + url + "' is no http or https URL");
    const auto responder = vek_double::TakeAnswer(&vek_double::World::State::http, "http", request);
    if (!responder) throw vek_err::Error("double", "http", "no answer for " + request);
    const vek_double::HttpAnswer answer = (*responder)(body ? *body : "");
    status = answer.status;
    if (!any_status && status >= 400)
        throw vek_err::Error("http", "status", request + ": " + std::to_string(status));
    if (answer.body.size() > most) throw vek_err::Error("http", "exchange", "the answer is too large");
    if (!answer.raw.empty()) {
        out << answer.raw;
        return;
    }
    if (header) out << "HTTP/1.1 " << status << "\r\n" << answer.head << "\r\n";
    out << answer.body;
}

HttpQuery::HttpQuery() : exchange_(std::make_unique<Exchange>()) {}
HttpQuery::~HttpQuery() = default;
void HttpQuery::AddHeader(const std::string& line) { vek_double::Note("header", line); }
void HttpQuery::AcceptHeader() { exchange_->header = true; }
void HttpQuery::AcceptAnyResponse() { exchange_->any_status = true; }
void HttpQuery::ConnectTo(const std::string& address) {
    // As the real one does, though it takes some texts for addresses that are none.
    if (address.empty() || address.find_first_not_of("0123456789abcdefABCDEF.:") != std::string::npos)
        throw vek_err::Error("http", "address", "\"" + address + "\" is no address");
    vek_double::Note("connect to", address);
}
void HttpQuery::Limit(std::chrono::seconds total, std::size_t bytes) {
    vek_double::Note("http limit", std::to_string(total.count()) + " " + std::to_string(bytes));
    exchange_->most = bytes;
}
void HttpQuery::Get(const std::string& url, std::ostream& out) { exchange_->Carry("GET", url, nullptr, out); }
void HttpQuery::Post(const std::string& url, const std::string& data, std::ostream& out) {
    exchange_->Carry("POST", url, &data, out);
}
int HttpQuery::Status() const { return exchange_->status; }

}  // namespace vek_rpc
