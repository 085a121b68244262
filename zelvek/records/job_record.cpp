#include "zelvek/records/job_record.h"

#include <json/json.h>

#include <exception>
#include <memory>

#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/base/html_text.h"
#include "zelvek/base/job.h"
#include "zelvek/records/event_words.h"
#include "zelvek/records/next_step.h"
#include "zelvek/records/time_json.h"

namespace zelvek::records {

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
        event["words"] = WordsOfEvent(node.Value("event"), node.Value("detail"));
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

}  // namespace zelvek::records
