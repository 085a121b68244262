#include "zelvek/cli/job.h"

#include <json/json.h>

#include <iostream>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/cli/cli.h"
#include "zelvek/cli/table.h"

namespace zelvek::cli {

namespace {

Json::Value JobJson(const vek_xml::Node& node) {
    Json::Value json;
    for (const char* key : {"id", "attempt_count"}) json[key] = str::Int(node.Value(key));
    for (const char* key : {"verified", "failed", "processing"}) json[key] = node.Value(key) == "on";
    for (const char* key : {"certname", "domain", "user_name", "aliases", "check_type", "next_attempt",
                            "time_started", "kid", "finalize_check", "challenges"}) {
        json[key] = node.Value(key);
    }
    return json;
}

std::map<std::string, std::string> Parameters(const NewJob& job) {
    std::map<std::string, std::string> parameters{
        {"domain", job.name},
        {"user_name", job.user},
        {"check_type", job.check},
        {"certname", job.certname},
        {"res_name", job.res_name},
        {"skip_account_check", job.skip_account_check ? "on" : "off"},
        {"max_account_check_attempts", str::Str(job.max_account_checks)}};
    for (const auto& alias : job.aliases) {
        // Names are separated by blanks: what holds one, or nothing, is refused here.
        if (alias.empty() || alias.find(' ') != std::string::npos) {
            throw Error(Code::kValue, "alias", alias, "\"" + alias + "\" is no domain name");
        }
        str::inpl::Append(parameters["aliases"], alias, " ");
    }
    for (std::string entry : job.csr) {
        const std::string key = str::GetWord(entry, '=');
        parameters["csr_" + key] = entry;
    }
    return parameters;
}

}  // namespace

std::string StateOf(const vek_xml::Node& job) {
    for (const char* state : {"verified", "failed"}) {
        if (job.Value(state) == "on") return state;
    }
    return job.Value("processing") == "on" ? "running" : "waiting";
}

vek_client::Result AskForJob(int id) { return Ask("zelvek.job.show", {{"elid", str::Str(id)}}); }

std::size_t EventCount(const vek_client::Result& shown) { return shown.xml().GetNodes("/doc/event").size(); }

Json::Value JobJson(const vek_client::Result& shown) {
    Json::Value json = JobJson(shown.xml().GetNode("/doc"));
    json["events"] = Json::arrayValue;
    for (const auto& node : shown.xml().GetNodes("/doc/event")) {
        Json::Value event;
        for (const char* key : {"time", "state", "event", "detail"}) event[key] = node.Value(key);
        json["events"].append(event);
    }
    return json;
}

std::string EventTable(const vek_client::Result& shown, std::size_t first) {
    std::vector<std::vector<std::string>> rows;
    const auto nodes = shown.xml().GetNodes("/doc/event");
    for (std::size_t i = first; i < nodes.size(); ++i) {
        rows.push_back({nodes[i].Value("time"), nodes[i].Value("state"), nodes[i].Value("event"),
                        nodes[i].Value("detail")});
    }
    return rows.empty() ? "" : Table({"TIME", "STATE", "EVENT", "DETAIL"}, rows);
}

int AddJob(const NewJob& job, const Output& output) {
    const std::string id = Ask("zelvek.job.add", Parameters(job)).value("id");
    if (output.json) {
        PrintJson(JobJson(AskForJob(str::Int(id))));
    } else {
        std::cout << "job " << id << " added\n";
    }
    return kSuccess;
}

int ListJobs(const Output& output) {
    const auto answer = Ask("zelvek.job.list", {});
    Json::Value json(Json::arrayValue);
    std::vector<std::vector<std::string>> rows;
    for (const auto& node : answer.xml().GetNodes("/doc/elem")) {
        json.append(JobJson(node));
        rows.push_back({node.Value("id"), node.Value("certname"), node.Value("user_name"),
                        node.Value("check_type"), StateOf(node), node.Value("attempt_count"),
                        node.Value("next_attempt")});
    }
    if (output.json) {
        PrintJson(json);
    } else {
        std::cout << Table({"ID", "CERTIFICATE", "USER", "CHECK", "STATE", "ATTEMPTS", "NEXT ATTEMPT"}, rows);
    }
    return kSuccess;
}

int ShowJob(int id, const Output& output) {
    const auto shown = AskForJob(id);
    if (output.json) {
        PrintJson(JobJson(shown));
        return kSuccess;
    }
    const auto job = shown.xml().GetNode("/doc");
    std::cout << Table({"JOB", job.Value("id")}, {{"certificate", job.Value("certname")},
                                                  {"names", job.Value("aliases")},
                                                  {"user", job.Value("user_name")},
                                                  {"check", job.Value("check_type")},
                                                  {"state", StateOf(job)},
                                                  {"started", job.Value("time_started")},
                                                  {"attempts", job.Value("attempt_count")},
                                                  {"next attempt", job.Value("next_attempt")},
                                                  {"account", job.Value("kid")},
                                                  {"order", job.Value("finalize_check")}});
    const std::string events = EventTable(shown, 0);
    if (!events.empty()) std::cout << "\n" << events;
    return kSuccess;
}

int RemoveJob(int id, const Output& output) {
    Ask("zelvek.job.remove", {{"elid", str::Str(id)}});
    if (!output.json) {
        std::cout << "job " << id << " removed\n";
        return kSuccess;
    }
    Json::Value json;
    json["id"] = id;
    PrintJson(json);
    return kSuccess;
}

}  // namespace zelvek::cli
