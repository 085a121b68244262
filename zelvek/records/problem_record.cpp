#include "zelvek/records/problem_record.h"

#include <json/json.h>

#include "vek/str.h"
#include "zelvek/records/time_json.h"

namespace zelvek::records {

Json::Value ProblemJson(const vek_xml::Node& problem) {
    Json::Value json;
    json["number"] = str::Int(problem.Value("number"));  // what "--after" takes
    for (const char* key : {"id", "name", "level", "owner", "user_name", "state"})
        json[key] = problem.Value(key);
    for (const char* key : {"since", "time"}) json[key] = TimeJson(problem.Value(key));
    json["times"] = str::Int(problem.Value("times"));
    json["parameters"] = Json::objectValue;
    for (const auto& parameter : problem.Children("parameter"))
        json["parameters"][parameter.Value("name")] = parameter.Value("value");
    return json;
}

}  // namespace zelvek::records
