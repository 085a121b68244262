#include "zelvek/cli/job_view.h"

#include <json/json.h>

#include <exception>
#include <memory>

#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/base/authority.h"
#include "zelvek/base/html_text.h"
#include "zelvek/base/job.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/json_output.h"
#include "zelvek/cli/next_step.h"
#include "zelvek/cli/steps.h"
#include "zelvek/cli/table.h"

namespace zelvek::cli {

vek_client::Result AskForJob(int id, const std::string& user) {
    std::map<std::string, std::string> parameters{{"elid", str::Str(id)}};
    if (!user.empty()) parameters["user_name"] = user;
    return Ask("zelvek.job.show", parameters);
}

std::string StateOf(const vek_xml::Node& job) {
    if (job.Value("paused") == "on") return "paused";
    for (const char* state : {"verified", "failed"}) {
        if (job.Value(state) == "on") return state;
    }
    return job.Value("processing") == "on" ? "running" : "waiting";
}

std::string LastError(const vek_xml::Node& job) {
    const std::string refusal = job.Value("refusal");
    if (!refusal.empty()) return TextOfHtml(refusal);
    const std::string words = WordsOfEvent(job.Value("failed_event"), job.Value("failed_detail"));
    return words.empty() ? "the run ended without saying why" : words;
}

namespace {

/// The words between blanks.
Json::Value WordsJson(const std::string& text) {
    Json::Value words(Json::arrayValue);
    for (const std::string& word : str::Split(text, " ")) words.append(word);
    return words;
}

/// What a run has kept as JSON; text that is none is the list's one element, so that nothing is hidden.
Json::Value ListJson(const std::string& text) {
    Json::Value list(Json::arrayValue);
    if (text.empty()) return list;
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value read;
    std::string errors;
    try {
        if (reader->parse(text.data(), text.data() + text.size(), &read, &errors) && read.isArray())
            return read;
    } catch (const std::exception&) {
        // It is nested too deeply.
    }
    list.append(text);
    return list;
}

Json::Value FieldJson(const JobField& field, const std::string& text) {
    if (field.member == JobField::Member(&Job::aliases)) return WordsJson(text);
    if (field.member == JobField::Member(&Job::challenges)) return ListJson(text);
    if (field.IsNumber()) return str::Int(text);
    if (field.IsFlag()) return text == "on";
    return field.date ? TimeJson(text) : Json::Value(text);
}

}  // namespace

Json::Value JobJson(const vek_xml::Node& job) {
    Json::Value json;
    json["id"] = str::Int(job.Value("id"));
    for (const JobField& field : kJobFields) {
        if ((field.shown & JobField::kInLists) != 0) json[field.key] = FieldJson(field, job.Value(field.key));
    }
    json["state"] = StateOf(job);
    json["next_step"] = NextStep(job, vek_date::DateTime().AsDateTime());
    const bool fails = job.Value("failed") == "on" || str::Int(job.Value("failures")) > 0;
    json["last_error"] = fails ? Json::Value(LastError(job)) : Json::Value();
    return json;
}

Json::Value JobJson(const vek_client::Result& shown) {
    Json::Value json = JobJson(shown.xml().GetNode("/doc"));
    json["sentence"] = shown.value("sentence");
    json["findings"] = Json::arrayValue;
    for (const auto& finding : shown.xml().GetNodes("/doc/finding"))
        json["findings"].append(finding.Value("text"));
    json["events"] = Json::arrayValue;
    for (const auto& node : shown.xml().GetNodes("/doc/event")) {
        Json::Value event;
        event["time"] = TimeJson(node.Value("time"));
        for (const char* key : {"state", "event", "detail"}) event[key] = node.Value(key);
        json["events"].append(event);
    }
    for (const auto& node : shown.xml().GetNodes("/doc/reload")) {
        Json::Value& reload = json["reload"];
        for (const char* key : {"since", "next"}) reload[key] = TimeJson(node.Value(key));
        reload["reason"] = node.Value("reason");
        reload["failures"] = str::Int(node.Value("failures"));
    }
    return json;
}

std::string JobTable(const vek_client::Result& shown) {
    const auto job = shown.xml().GetNode("/doc");
    std::vector<std::vector<std::string>> rows{
        {"certificate", job.Value("certname")},
        {"names", job.Value("aliases")},
        {"user", job.Value("user_name")},
        {"check", job.Value("check_type")},
        {"state", StateOf(job)},
        {"started", WithZone(job.Value("time_started"))},
        {"attempts", job.Value("attempt_count")},
        {"next step", NextStep(job, vek_date::DateTime().AsDateTime())},
        {"expires", WithZone(job.Value("expires"))},
        {"account", job.Value("kid")},
        {"order", job.Value("finalize_check")}};
    if (job.Value("authority") != authorities::kFirst) rows.push_back({"authority", job.Value("authority")});
    if (!job.Value("refusal").empty()) rows.push_back({"refused", TextOfHtml(job.Value("refusal"))});
    for (const auto& reload : shown.xml().GetNodes("/doc/reload")) {
        rows.push_back({"web server", "has an older certificate since " + reload.Value("since") +
                                          " UTC, tried again at " + reload.Value("next") +
                                          " UTC: " + TextOfHtml(reload.Value("reason"))});
    }
    return OutputTable({"JOB", job.Value("id")}, rows);
}

std::string JobSentence(const vek_client::Result& shown) {
    const std::string sentence = shown.value("sentence");
    return sentence.empty() ? "" : OutputText(sentence);
}

std::string JobFindings(const vek_client::Result& shown) {
    std::string lines;
    for (const auto& finding : shown.xml().GetNodes("/doc/finding"))
        lines += OutputText(finding.Value("text"));
    return lines;
}

std::size_t EventCount(const vek_client::Result& shown) { return shown.xml().GetNodes("/doc/event").size(); }

std::string EventTable(const vek_client::Result& shown, std::size_t first) {
    std::vector<std::vector<std::string>> rows;
    const auto nodes = shown.xml().GetNodes("/doc/event");
    for (std::size_t i = first; i < nodes.size(); ++i) {
        rows.push_back({nodes[i].Value("time"), nodes[i].Value("state"), nodes[i].Value("event"),
                        TextOfHtml(nodes[i].Value("detail"))});
    }
    return rows.empty() ? "" : OutputTable({"TIME (UTC)", "STATE", "EVENT", "DETAIL"}, rows);
}

}  // namespace zelvek::cli
