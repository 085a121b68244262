#include "zelvek/certificates/renewal_info.h"

#include <json/json.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <regex>
#include <sstream>
#include <string_view>

#include "vek/err.h"
#include "vek/rpc.h"
#include "vek/str.h"
#include "zelvek/base/error.h"

namespace zelvek::renewal_info {

namespace {

using vek_date::DateTime;

constexpr int kSuccess = 200;
constexpr int kDay = 24 * 3600;  // seconds
constexpr std::size_t kLongestBody = 100'000;
constexpr std::chrono::seconds kLimit{20};  // a service that ends waits for one exchange

Error Strange(const std::string& what) { return Error(Code::kProtocol, "the authority's " + what); }

Json::Value Parse(const std::string& text, const std::string& what) {
    if (text.size() > kLongestBody) throw Strange(what + " is too long");
    Json::Value json;
    std::string reasons;
    const Json::CharReaderBuilder builder;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    try {
        if (reader->parse(text.data(), text.data() + text.size(), &json, &reasons) && json.isObject())
            return json;
    } catch (const Json::Exception&) {
        // Such as an array in arrays beyond any sense.
    }
    throw Strange(what + " is no JSON object");
}

std::string Member(const Json::Value& object, const char* name) {
    const Json::Value& member = object[name];
    return member.isString() ? member.asString() : "";
}

struct Answer {
    std::string headers;
    std::string body;
};

Answer Get(const std::string& url, const std::string& what) {
    if (!url.starts_with("https://")) throw Strange(what + " has no https URL");
    std::ostringstream out;
    vek_rpc::HttpQuery query;
    query.AcceptHeader();
    query.AcceptAnyResponse();
    query.Limit(kLimit, kLongestBody);
    query.Get(url, out);
    if (query.Status() != kSuccess) throw Strange(what + " has status " + std::to_string(query.Status()));
    const std::string text = out.str();
    const std::size_t end = std::min(text.find("\r\n\r\n"), text.size());
    return {text.substr(0, end), text.substr(std::min(end + 4, text.size()))};
}

/// Of "Fri, 31 Dec 1999 23:59:59 GMT" as well as of "120".
int SecondsUntil(const std::string& text) {
    std::tm fields{};
    if (::strptime(text.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &fields) == nullptr) return str::Int(text);
    std::array<char, sizeof("YYYY-MM-DD HH:MM:SS")> moment{};
    std::strftime(moment.data(), moment.size(), "%Y-%m-%d %H:%M:%S", &fields);
    try {
        return static_cast<int>(std::clamp<std::int64_t>(DateTime(moment.data()).SecondsSince(DateTime()), 0,
                                                         std::int64_t{365} * kDay));
    } catch (const vek_err::Error&) {
        return 0;
    }
}

}  // namespace

DateTime Within(const Window& window, double share) {
    constexpr std::int64_t kLongest = std::int64_t{365} * kDay;
    const std::int64_t length = std::clamp<std::int64_t>(window.end.SecondsSince(window.start), 0, kLongest);
    return DateTime(window.start).AddSeconds(static_cast<int>(static_cast<double>(length) * share));
}

double ShareOf(const std::string& name) {
    constexpr std::uint32_t kParts = 1'000'000;
    return static_cast<double>(std::hash<std::string>{}(name) % kParts) / kParts;
}

DateTime ReadTime(const std::string& text) {
    static const std::regex form(
        R"((\d{4}-\d\d-\d\d)[Tt ](\d\d:\d\d:\d\d)(?:\.\d{1,20})?(?:[Zz]|([+-])(\d\d):(\d\d)))");
    std::smatch parts;
    if (text.size() > 64 || !std::regex_match(text, parts, form))
        throw Strange("time \"" + text.substr(0, 64) + "\" is none");
    try {
        DateTime time(parts[1].str() + " " + parts[2].str());
        if (!parts[3].matched) return time;
        const int ahead = str::Int(parts[4]) * 3600 + str::Int(parts[5]) * 60;
        return time.AddSeconds(parts[3] == "+" ? -ahead : ahead);
    } catch (const vek_err::Error&) {
        throw Strange("time \"" + text + "\" is none");
    }
}

Window ReadWindow(const std::string& body) {
    const Json::Value json = Parse(body, "renewal information");
    const Json::Value& window = json["suggestedWindow"];
    if (!window.isObject()) throw Strange("renewal information has no window");
    const Window read{ReadTime(Member(window, "start")), ReadTime(Member(window, "end"))};
    if (read.end < read.start) throw Strange("renewal window ends before it begins");
    return read;
}

int RetryAfter(const std::string& headers) {
    constexpr std::string_view kName = "retry-after:";
    for (const std::string& line : str::Split(headers, "\r\n")) {
        if (!str::Lower(line).starts_with(kName)) continue;
        std::string value = line.substr(kName.size());
        str::inpl::Trim(value);
        return std::max(SecondsUntil(value), 0);
    }
    return 0;
}

Suggestion Authority::Ask(const std::string& name) {
    const DateTime now;
    if (!url_ || DateTime(looked_up_).AddSeconds(kDay) <= now) {
        const Json::Value directory = Parse(Get(directory_, "directory").body, "directory");
        url_ = Member(directory, "renewalInfo");
        looked_up_ = now.AsDateTime();
    }
    if (url_->empty()) return {};
    const Answer answer = Get(*url_ + (url_->ends_with('/') ? "" : "/") + name, "renewal information");
    return {ReadWindow(answer.body), RetryAfter(answer.headers)};
}

}  // namespace zelvek::renewal_info
