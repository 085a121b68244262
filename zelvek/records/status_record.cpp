#include "zelvek/records/status_record.h"

#include <json/json.h>

#include "vek/str.h"
#include "zelvek/records/job_record.h"
#include "zelvek/records/time_json.h"

namespace zelvek::records {

Json::Value StatusJson(const vek_client::Result& status) {
    Json::Value json;
    for (const char* key : {"version", "database", "authority", "kid"}) json[key] = status.value(key);
    for (const char* key : {"started", "now"}) json[key] = TimeJson(status.value(key));
    for (const char* key : {"scheduler", "key"}) json[key] = status.value(key) == "on";
    json["runs"] = str::Int(status.value("runs"));
    const auto counts = status.xml().GetNode("/doc/jobs");
    for (const char* state : kStates) json["jobs"][state] = str::Int(counts.Value(state));
    json["authorities"] = Json::arrayValue;
    for (const auto& node : status.xml().GetNodes("/doc/used")) {
        Json::Value used;
        for (const char* key : {"name", "directory", "kid"}) used[key] = node.Value(key);
        for (const char* key : {"default", "key"}) used[key] = node.Value(key) == "on";
        used["jobs"] = str::Int(node.Value("jobs"));
        json["authorities"].append(used);
    }
    json["ending"] = json["failures"] = Json::arrayValue;
    for (const auto& node : status.xml().GetNodes("/doc/ending")) {
        Json::Value job;
        job["id"] = str::Int(node.Value("id"));
        for (const char* key : {"certname", "user_name"}) job[key] = node.Value(key);
        job["expires"] = TimeJson(node.Value("expires"));
        json["ending"].append(job);
    }
    for (const auto& node : status.xml().GetNodes("/doc/failure")) {
        Json::Value job;
        for (const char* key : {"id", "failures"}) job[key] = str::Int(node.Value(key));
        for (const char* key : {"certname", "user_name"}) job[key] = node.Value(key);
        job["due"] = TimeJson(node.Value("due"));
        job["failed"] = node.Value("failed") == "on";
        job["last_error"] = LastError(node);
        json["failures"].append(job);
    }
    return json;
}

}  // namespace zelvek::records
