// What the page shows of many jobs and of notifications.
#include <json/json.h>

#include <algorithm>

#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/html_text.h"
#include "zelvek/jobs/limits.h"
#include "zelvek/page/call.h"
#include "zelvek/records/job_record.h"
#include "zelvek/records/problem_record.h"
#include "zelvek/records/status_record.h"
#include "zelvek/records/time_json.h"
#include "zelvek/store/job_authorities.h"
#include "zelvek/store/job_lists.h"
#include "zelvek/store/page_deeds.h"
#include "zelvek/store/problems.h"
#include "zelvek/store/tallies.h"

namespace zelvek::page {

namespace {

using job_lists::Kind;
using vek_date::DateTime;

constexpr int kSoonDays = 30;
constexpr int kMostCounted = 1000;  // of one user's jobs
constexpr int kMostShown = 12;      // of those that need a person
constexpr int kMostOfPage = 200;
constexpr int kCalendarDays = 400;
constexpr int kRunDays = 30;
constexpr std::size_t kDateLength = sizeof("YYYY-MM-DD") - 1;
constexpr const char* kForEver = "9999-12-31 23:59:59";

std::string InDays(int days) { return DateTime().AddDays(days).AsDateTime(); }

long long SoonOfAll(Transaction& transaction) {
    const std::string end = InDays(kSoonDays).substr(0, kDateLength);
    long long jobs = 0;
    for (const auto& day : tallies::OfEnds(transaction, "", kCalendarDays))
        jobs += day.day <= end ? day.jobs : 0;
    return jobs;
}

long long SoonOfUser(Transaction& transaction, const std::string& user) {
    return static_cast<long long>(
        job_lists::Some(transaction, {Kind::kEnding, user, {}, kMostCounted, InDays(kSoonDays)}).size());
}

/// One user's jobs are few: they are counted when somebody asks.
Json::Value CountsOf(Transaction& transaction, const std::string& user) {
    Json::Value counts;
    for (const char* state : records::kStates) counts[state] = 0;
    for (const Kind kind : {Kind::kFailed, Kind::kWaiting, Kind::kRunning, Kind::kVerified, Kind::kPaused}) {
        for (const zelvek::Job& job : job_lists::Some(transaction, {kind, user, {}, kMostCounted})) {
            Json::Value& count = counts[job_lists::Word(job_lists::KindOf(job))];
            count = count.asInt() + 1;
        }
    }
    return counts;
}

int LimitOf(const std::string& text, int usual) {
    if (text.empty()) return usual;
    const int limit = str::Int(text);
    if (limit < 1 || limit > kMostOfPage)
        throw Error(Code::kValue, "limit", text, "\"limit\" is a number from 1 to 200");
    return limit;
}

notices::Parameters ParametersOf(const vek_xml::Node& problem) {
    notices::Parameters parameters;
    for (const auto& parameter : problem.Children("parameter"))
        parameters.emplace_back(parameter.Value("name"), TextOfHtml(parameter.Value("value")));
    return parameters;
}

}  // namespace

Json::Value Api::Status(const Call& call) {
    const std::string& user = call.visitor.user;
    Json::Value json;
    if (call.visitor.IsAdministrator()) {
        json = records::StatusJson(Ask("zelvek.status", {}));
        Transaction transaction(services_.store);
        json["expiring"] = static_cast<Json::Int64>(SoonOfAll(transaction));
        const auto states = tallies::OfNotices(transaction);
        for (const char* state : {"raised", "seen"}) {
            const auto found = states.find(state);
            json["notices"][state] = static_cast<Json::Int64>(found == states.end() ? 0 : found->second);
        }
        return json;
    }
    Transaction transaction(services_.store);
    json["jobs"] = CountsOf(transaction, user);
    json["expiring"] = static_cast<Json::Int64>(SoonOfUser(transaction, user));
    json["notices"]["raised"] = json["notices"]["seen"] = 0;
    for (const auto& problem : problems::OpenOf(transaction, user, 0, kMostCounted)) {
        Json::Value& count = json["notices"][problem.state];
        count = count.asInt() + 1;
    }
    json["scheduler"] = services_.rules.Get()->scheduler;
    json["now"] = records::TimeJson(DateTime().AsDateTime());
    return json;
}

/// Stopped jobs, those whose runs fail, and certificates that should have been renewed by now, each with the
/// sentence of "zelvek job show".
Json::Value Api::Attention(const Call& call) {
    const std::string now = DateTime().AsDateTime();
    std::vector<int> ids;
    const auto add = [&](int id) {
        if (std::find(ids.begin(), ids.end(), id) == ids.end()) ids.push_back(id);
    };
    {
        Transaction transaction(services_.store);
        const std::string& user = call.visitor.user;
        for (const zelvek::Job& job :
             job_lists::Some(transaction, {Kind::kEnding, user, {}, kMostShown, now}))
            if (!job.paused) add(job.id);
        for (const zelvek::Job& job : job_lists::Some(transaction, {Kind::kFailed, user, {}, kMostShown + 1}))
            add(job.id);
        const Kind failing = user.empty() ? Kind::kFailing : Kind::kWaiting;
        const int most = user.empty() ? kMostShown + 1 : kMostOfPage;
        for (const zelvek::Job& job : job_lists::Some(transaction, {failing, user, {}, most}))
            if (job.failures > 0) add(job.id);
    }
    Json::Value json;
    json["jobs"] = Json::arrayValue;
    json["more"] = ids.size() > kMostShown;
    if (ids.size() > kMostShown) ids.resize(kMostShown);
    for (const int id : ids) {
        Json::Value job = records::JobJson(Ask("zelvek.job.show", {{"elid", str::Str(id)}}));
        job.removeMember("events");
        json["jobs"].append(job);
    }
    return json;
}

Json::Value Api::Jobs(const Call& call) {
    constexpr int kUsual = 50;
    const int limit = LimitOf(call.Parameter("limit"), kUsual);
    std::map<std::string, std::string> parameters{{"limit", str::Str(limit)}};
    for (const char* name : {"state", "name", "begin", "order", "after", "expires_within"}) {
        if (!call.Parameter(name).empty()) parameters[name] = call.Parameter(name);
    }
    parameters["user_name"] = call.visitor.IsAdministrator() ? call.Parameter("user") : call.visitor.user;
    const auto answer = Ask("zelvek.job.attention", parameters);
    Json::Value json;
    json["jobs"] = Json::arrayValue;
    const auto nodes = answer.xml().GetNodes("/doc/elem");
    // One user's failing jobs stand among those that wait.
    const bool failing = call.Parameter("state") == "failing";
    for (const auto& node : nodes) {
        if (failing && node.Value("failed") != "on" && str::Int(node.Value("failures")) == 0) continue;
        json["jobs"].append(records::JobJson(node));
    }
    const bool more = nodes.size() == static_cast<std::size_t>(limit);
    json["next"] = more ? Json::Value(nodes.back().Value("place")) : Json::Value();
    return json;
}

Json::Value Api::Notices(const Call& call) {
    constexpr int kUsual = 100;
    std::map<std::string, std::string> parameters{
        {"limit", str::Str(LimitOf(call.Parameter("limit"), kUsual))}, {"state", "open"}};
    if (!call.visitor.IsAdministrator()) parameters["owner"] = call.visitor.user;
    if (!call.Parameter("after").empty()) parameters["after"] = call.Parameter("after");
    const auto answer = Ask("zelvek.problem.list", parameters);
    const notices::Texts& texts = texts_.at(LanguageOf(call.request));
    Json::Value json;
    json["notices"] = Json::arrayValue;
    const auto nodes = answer.xml().GetNodes("/doc/elem");
    for (const auto& node : nodes) {
        Json::Value notice = records::ProblemJson(node);
        const notices::Text text = texts.Of(node.Value("name"), ParametersOf(node));
        notice["subject"] = text.subject;
        notice["text"] = text.body;
        json["notices"].append(notice);
    }
    const bool more = str::Str(static_cast<int>(nodes.size())) == parameters["limit"];
    json["next"] = more ? Json::Value(str::Int(nodes.back().Value("number"))) : Json::Value();
    return json;
}

Json::Value Api::ChangeNotice(const Call& call) {
    std::string name;
    {
        Transaction transaction(services_.store);
        const auto problem = problems::Find(transaction, std::stoll(call.id));
        if (!problem || (!call.visitor.IsAdministrator() && problem->owner != call.visitor.user))
            throw Error(Code::kMissed, "problem", call.id, "there is no notification " + call.id);
        name = problem->name;
    }
    Ask("zelvek.problem." + call.action, {{"number", call.id}});
    Note(call.visitor, call.action + " notification " + call.id + " (" + name + ")");
    return Json::objectValue;
}

Json::Value Api::Calendar(const Call& call) {
    Json::Value json;
    json["days"] = Json::arrayValue;
    const auto add = [&](const std::string& day, long long jobs) {
        Json::Value& entry = json["days"].append(Json::objectValue);
        entry["day"] = day;
        entry["jobs"] = static_cast<Json::Int64>(jobs);
    };
    Transaction transaction(services_.store);
    if (call.visitor.IsAdministrator()) {
        for (const auto& day : tallies::OfEnds(transaction, "", kCalendarDays)) add(day.day, day.jobs);
        return json;
    }
    std::map<std::string, long long> days;
    for (const zelvek::Job& job :
         job_lists::Some(transaction, {Kind::kEnding, call.visitor.user, {}, kMostCounted, kForEver}))
        ++days[job.expires.substr(0, kDateLength)];
    for (const auto& [day, jobs] : days) add(day, jobs);
    return json;
}

namespace {

void CheckAdministrator(const Visitor& visitor) {
    if (!visitor.IsAdministrator()) throw Error(Code::kMissed, "this is for the administrator alone");
}

}  // namespace

Json::Value Api::Runs(const Call& call) {
    CheckAdministrator(call.visitor);
    Json::Value json;
    json["days"] = Json::arrayValue;
    Transaction transaction(services_.store);
    for (const auto& some : tallies::OfRunsSince(transaction, InDays(-kRunDays).substr(0, kDateLength))) {
        Json::Value& days = json["days"];
        if (days.empty() || days[days.size() - 1]["day"].asString() != some.day)
            days.append(Json::objectValue)["day"] = some.day;
        days[days.size() - 1]["outcomes"][some.outcome] = static_cast<Json::Int64>(some.runs);
    }
    return json;
}

Json::Value Api::Limits(const Call& call) {
    CheckAdministrator(call.visitor);
    Json::Value json;
    json["orders_limit"] = allowed_.orders;
    json["failures_limit"] = allowed_.failures;
    json["authorities"] = Json::arrayValue;
    Transaction transaction(services_.store);
    const std::string now = DateTime().AsDateTime();
    for (const auto& [authority, jobs] : job_authorities::Counts(transaction)) {
        Json::Value& entry = json["authorities"].append(Json::objectValue);
        entry["name"] = authority;
        entry["jobs"] = static_cast<Json::Int64>(jobs);
        entry["orders"] = OrdersOf(transaction, authority, now, allowed_.orders);
    }
    return json;
}

Json::Value Api::Deeds(const Call& call) {
    CheckAdministrator(call.visitor);
    constexpr long long kNewest = 1LL << 62;
    Json::Value json;
    json["deeds"] = Json::arrayValue;
    Transaction transaction(services_.store);
    for (const auto& deed : page_deeds::Newest(transaction, kNewest, kMostOfPage)) {
        Json::Value& entry = json["deeds"].append(Json::objectValue);
        entry["time"] = records::TimeJson(deed.time);
        entry["who"] = deed.who;
        entry["what"] = deed.what;
    }
    return json;
}

}  // namespace zelvek::page
