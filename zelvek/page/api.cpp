#include "zelvek/page/api.h"

#include <json/json.h>

#include <algorithm>
#include <charconv>
#include <exception>
#include <memory>
#include <optional>

#include "vek/date.h"
#include "vek/err.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/json_text.h"
#include "zelvek/base/log.h"
#include "zelvek/base/text.h"
#include "zelvek/page/call.h"
#include "zelvek/records/job_record.h"
#include "zelvek/records/time_json.h"
#include "zelvek/store/page_deeds.h"

namespace zelvek::page {

namespace {

using Words = std::vector<std::string>;

constexpr unsigned kNotFound = 404;
constexpr unsigned kMethodNotAllowed = 405;

unsigned StatusOf(Code code) {
    switch (code) {
        case Code::kValue:
        case Code::kProtocol: return 400;
        case Code::kMissed: return kNotFound;
        case Code::kExists:
        case Code::kStale:
        case Code::kBusy: return 409;
        case Code::kLater: return 503;
        default: return 500;
    }
}

Response Refusal(unsigned status, const std::string& code, const std::string& message) {
    Json::Value json;
    json["error"]["code"] = code;
    json["error"]["message"] = message;
    return {status, "application/json", JsonText(json)};
}

/// The parts of a path between "/".
Words PartsOf(const std::string& path) {
    Words parts;
    for (std::size_t at = 1; at <= path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        parts.push_back(path.substr(at, end - at));
        at = end + 1;
    }
    return parts;
}

bool IsId(const std::string& text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number > 0;
}

/// Whether the path is the route's; the number in it, if it has one.
bool Matches(const std::string& route, const std::string& path, std::string& id) {
    const Words wanted = PartsOf(route);
    const Words given = PartsOf(path);
    if (wanted.size() != given.size()) return false;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        if (wanted[i] == "{id}" && IsId(given[i])) {
            id = given[i];
        } else if (wanted[i] != given[i]) {
            return false;
        }
    }
    return true;
}

}  // namespace

struct Api::Route {
    std::string method, path;
    Json::Value (Api::*answer)(const Call&);
    std::string action = {};  // of a change
};

const std::vector<Api::Route>& Api::AllRoutes() {
    static const std::vector<Route> routes{{"GET", "/api/session", &Api::Session},
                                           {"GET", "/api/status", &Api::Status},
                                           {"GET", "/api/attention", &Api::Attention},
                                           {"GET", "/api/jobs", &Api::Jobs},
                                           {"GET", "/api/jobs/{id}", &Api::Job},
                                           {"POST", "/api/jobs/{id}/retry", &Api::ChangeJob, "retry"},
                                           {"POST", "/api/jobs/{id}/renew", &Api::ChangeJob, "renew"},
                                           {"POST", "/api/jobs/{id}/pause", &Api::ChangeJob, "pause"},
                                           {"POST", "/api/jobs/{id}/resume", &Api::ChangeJob, "resume"},
                                           {"GET", "/api/notices", &Api::Notices},
                                           {"POST", "/api/notices/{id}/clear", &Api::ChangeNotice, "clear"},
                                           {"POST", "/api/notices/{id}/seen", &Api::ChangeNotice, "seen"},
                                           {"GET", "/api/calendar", &Api::Calendar},
                                           {"GET", "/api/runs", &Api::Runs},
                                           {"GET", "/api/limits", &Api::Limits},
                                           {"GET", "/api/deeds", &Api::Deeds}};
    return routes;
}

std::vector<std::pair<std::string, std::string>> Api::Routes() {
    std::vector<std::pair<std::string, std::string>> routes{
        {"POST", "/api/login"}, {"POST", "/api/logout"}, {"GET", "/api/changes"}};
    for (const Route& route : AllRoutes()) routes.emplace_back(route.method, route.path);
    return routes;
}

Api::Api(Services& services, Gate& gate, Settings settings, Allowed allowed,
         const std::set<std::string>& languages)
    : services_(services), gate_(gate), settings_(std::move(settings)), allowed_(allowed) {
    for (const std::string& language : languages) {
        const auto file = settings_.files.parent_path() / ("notices." + language + ".txt");
        const bool there = language != "en" && std::filesystem::exists(file);
        texts_.emplace(language, there ? notices::Texts(file) : notices::Texts());
    }
}

Response Api::Answer(const Request& request) {
    try {
        Response response = Dispatch(request);
        response.headers["Cache-Control"] = "no-store";
        return response;
    } catch (const Error& error) {
        if (error.code() != Code::kInternal)
            return Refusal(StatusOf(error.code()), Word(error.code()), Printable(error.sentence()));
        Log(request.path + ": " + error.what());
    } catch (const vek_err::Error& error) {
        const Code code = CodeOf(error.type());
        if (code != Code::kInternal) return Refusal(StatusOf(code), Word(code), Printable(error.what()));
        Log(request.path + ": " + error.what());
    } catch (const std::exception& error) {
        Log(request.path + ": " + error.what());
    }
    return Refusal(StatusOf(Code::kInternal), "internal", "the service failed at this; its log says why");
}

Response Api::Dispatch(const Request& request) {
    if (request.path == "/api/login" && request.method == "POST") return LogIn(request);
    const auto visitor = gate_.VisitorOf(request);
    if (!visitor) return Refusal(401, "login", "nobody is logged in, or not any more");
    if (request.method != "GET" && !Gate::MayChange(request, *visitor))
        return Refusal(403, "csrf", "this change was not asked for by the page");
    if (request.path == "/api/changes" && request.method == "GET") {
        Response response{200, "text/event-stream"};
        response.stream = true;
        response.watch = visitor->session == 0 ? "" : request.cookie;
        return response;
    }
    if (request.path == "/api/logout" && request.method == "POST")
        return {200, "application/json", "{}", {{"Set-Cookie", gate_.LogOut(*visitor)}}};
    bool there = false;
    for (const Route& route : AllRoutes()) {
        std::string id;
        if (!Matches(route.path, request.path, id)) continue;
        there = true;
        if (route.method != request.method) continue;
        return {200, "application/json",
                JsonText((this->*route.answer)({request, *visitor, id, route.action}))};
    }
    return there ? Refusal(kMethodNotAllowed, "method", "this cannot be done there")
                 : Refusal(kNotFound, "missed", "there is nothing at this path");
}

namespace {

/// The token of {"token": "..."}; nothing for any other text.
std::optional<std::string> TokenIn(const std::string& text) try {
    Json::Value body;
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    const bool read = reader->parse(text.data(), text.data() + text.size(), &body, nullptr);
    if (!read || !body.isObject() || !body["token"].isString()) return std::nullopt;
    return body["token"].asString();
} catch (const std::exception&) {
    return std::nullopt;  // it is nested too deeply
}

}  // namespace

Response Api::LogIn(const Request& request) {
    if (gate_.IsTooBusy()) {
        Response response = Refusal(429, "busy", "too many log-ins failed; try again in a minute");
        response.headers["Retry-After"] = "60";
        return response;
    }
    const auto token =
        request.content_type.starts_with("application/json") ? TokenIn(request.body) : std::nullopt;
    if (!token) return Refusal(400, "value", "a log-in is {\"token\": \"...\"}");
    const auto cookie = gate_.LogIn(*token, request.agent);
    if (!cookie) {
        Log("page: a log-in failed");
        return Refusal(401, "login", "this link does not hold: it works once, within a minute");
    }
    return {200, "application/json", "{}", {{"Set-Cookie", *cookie}}};
}

vek_client::Result Api::Ask(const std::string& function,
                            const std::map<std::string, std::string>& parameters) {
    const std::string query = vek_client::Bind("func=" + function, parameters);
    const zelvek::Answer answer = AnswerQuery(services_, {Parameters(query), {}, "", Right::kChange});
    return vek_client::Result(answer.text);
}

std::string Api::LanguageOf(const Request& request) const {
    std::set<std::string> there;
    for (const auto& [language, texts] : texts_) there.insert(language);
    return ChosenLanguage(request.language, there);
}

void Api::Note(const Visitor& visitor, const std::string& what) {
    const std::string who = NameOf(visitor);
    Log("page: " + who + " " + what);
    Transaction transaction(services_.store);
    page_deeds::Add(transaction, {0, vek_date::DateTime().AsDateTime(), who, what});
    transaction.Commit();
}

/// Others' jobs are as good as not there.
void Api::CheckJob(const Call& call) {
    if (call.visitor.IsAdministrator()) return;
    if (Ask("zelvek.job.show", {{"elid", call.id}}).value("user_name") != call.visitor.user)
        throw Error(Code::kMissed, "job", call.id, "there is no job " + call.id);
}

Json::Value Api::Session(const Call& call) {
    Json::Value json;
    json["user"] = call.visitor.IsAdministrator() ? Json::Value() : Json::Value(call.visitor.user);
    json["session"] = call.visitor.session != 0;
    json["csrf"] = call.visitor.csrf;
    json["language"] = LanguageOf(call.request);
    json["languages"] = Json::arrayValue;
    for (const auto& [language, texts] : texts_) json["languages"].append(language);
    json["now"] = records::TimeJson(vek_date::DateTime().AsDateTime());
    return json;
}

Json::Value Api::Job(const Call& call) {
    CheckJob(call);
    return records::JobJson(Ask("zelvek.job.show", {{"elid", call.id}}));
}

Json::Value Api::ChangeJob(const Call& call) {
    CheckJob(call);
    const auto before = Ask("zelvek.job.show", {{"elid", call.id}});
    if (call.action == "renew" && before.value("verified") != "on")
        throw Error(Code::kBusy, "job", call.id,
                    "job " + call.id + " has no certificate to be renewed; try it again instead");
    if (call.action == "retry" && before.value("verified") == "on")
        throw Error(Code::kBusy, "job", call.id, "job " + call.id + " has its certificate; renew it instead");
    Ask("zelvek.job." + call.action, {{"elid", call.id}});
    Note(call.visitor, call.action + " job " + call.id + " (" + before.value("certname") + ")");
    return records::JobJson(Ask("zelvek.job.show", {{"elid", call.id}}));
}

}  // namespace zelvek::page
