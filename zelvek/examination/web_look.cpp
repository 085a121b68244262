#include "zelvek/examination/web_look.h"

#include <chrono>
#include <exception>
#include <sstream>

#include "vek/rpc.h"
#include "vek/str.h"
#include "zelvek/base/finding_state.h"
#include "zelvek/base/html_text.h"
#include "zelvek/base/text.h"

namespace zelvek {

namespace {

constexpr std::chrono::seconds kAnswerLimit{5};
constexpr std::size_t kMostBytes = 128UL << 10;
constexpr std::size_t kShown = 100;      // characters
constexpr std::size_t kLookedAt = 4096;  // bytes of a page, for its first line
constexpr int kFirstRedirect = 300;
constexpr int kFirstError = 400;
constexpr int kOk = 200;

/// One line without controls, of at most so many characters.
std::string Shown(const std::string& text) {
    const std::string line = WithoutControls(TextOfHtml(text), '?');
    std::size_t at = 0;
    for (std::size_t count = 0; at < line.size() && count < kShown; ++count) {
        const auto character = CharacterAt(line, at);
        at += character ? character->length : 1;
    }
    return at < line.size() ? line.substr(0, at) + "..." : line;
}

struct Answer {
    int status = 0;
    std::string head;
    std::string body;
};

/// "404 Not Found" of "HTTP/1.1 404 Not Found".
std::string StatusOf(const Answer& answer) {
    std::string line = answer.head.substr(0, answer.head.find_first_of("\r\n"));
    str::GetWord(line, ' ');
    const std::string status = Shown(line);
    return status.empty() ? str::Str(answer.status) : status;
}

std::string HeaderOf(const Answer& answer, const std::string& name) {
    for (std::string line : str::Split(answer.head, "\n")) {
        const std::string key = str::GetWord(line, ':');
        if (str::Lower(key) == name) return str::Trim(line);
    }
    return "";
}

/// The first line of the body in which a person reads something.
std::string FirstLine(const std::string& body) {
    for (const std::string& line : str::Split(body.substr(0, kLookedAt), "\n")) {
        std::string shown = Shown(line);
        if (!shown.empty()) return shown;
    }
    return "";
}

WebLook Judge(const Answer& answer, const std::string& content) {
    if (answer.status == kOk && str::Trim(answer.body) == content) return {finding_state::kThere, ""};
    const std::string place = HeaderOf(answer, "location");
    if (answer.status >= kFirstRedirect && answer.status < kFirstError && !place.empty())
        return {finding_state::kRedirect, Shown(place)};
    const std::string status = StatusOf(answer);
    const std::string line = FirstLine(answer.body);
    return {finding_state::kOther, line == status ? status : str::Append(status, line, ": ")};
}

}  // namespace

WebLook LookAtAnswer(const std::string& host, const std::string& address, const std::string& token,
                     const std::string& content, int port) {
    vek_rpc::HttpQuery query;
    query.AcceptHeader();
    query.AcceptAnyResponse();
    query.Limit(kAnswerLimit, kMostBytes);
    const std::string at = host + (port == 80 ? "" : ":" + str::Str(port));
    std::ostringstream out;
    try {
        query.ConnectTo(address);
        query.Get("http://" + at + "/.well-known/acme-challenge/" + token, out);
    } catch (const std::exception& error) {
        return {finding_state::kUnreached, Shown(error.what())};
    }
    const std::string raw = out.str();
    const std::size_t end = raw.find("\r\n\r\n");
    Answer answer{query.Status(), raw.substr(0, end), end == std::string::npos ? "" : raw.substr(end + 4)};
    return Judge(answer, content);
}

}  // namespace zelvek
