#include "vek/rpc.h"

#include "double/state.h"
#include "vek/err.h"

namespace vek_rpc {

struct HttpQuery::Exchange {
    bool header = false;
    bool any_status = false;
    int status = 0;

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
void HttpQuery::Get(const std::string& url, std::ostream& out) { exchange_->Carry("GET", url, nullptr, out); }
void HttpQuery::Post(const std::string& url, const std::string& data, std::ostream& out) {
    exchange_->Carry("POST", url, &data, out);
}
int HttpQuery::Status() const { return exchange_->status; }

}  // namespace vek_rpc
