#include <json/json.h>

#include <iostream>

#include "zelvek/cli/cli.h"
#include "zelvek/cli/table.h"

namespace zelvek::cli {

namespace {

Json::Value ToJson(const vek_xml::Node& problem) {
    Json::Value json;
    for (const char* key : {"id", "name", "level", "owner", "time"}) json[key] = problem.Value(key);
    json["parameters"] = Json::objectValue;
    for (const auto& parameter : problem.Children("parameter"))
        json["parameters"][parameter.Value("name")] = parameter.Value("value");
    return json;
}

std::string ParameterLine(const vek_xml::Node& problem) {
    std::string line;
    for (const auto& parameter : problem.Children("parameter")) {
        line += (line.empty() ? "" : ", ") + parameter.Value("name") + "=" + parameter.Value("value");
    }
    return line;
}

}  // namespace

int ListProblems(const Output& output) {
    const auto answer = Ask("zelvek.problem.list", {});
    Json::Value json(Json::arrayValue);
    std::vector<std::vector<std::string>> rows;
    for (const auto& problem : answer.xml().GetNodes("/doc/elem")) {
        json.append(ToJson(problem));
        rows.push_back({problem.Value("time"), problem.Value("level"), problem.Value("owner"),
                        problem.Value("name"), ParameterLine(problem)});
    }
    if (output.json) {
        PrintJson(json);
    } else {
        std::cout << Table({"TIME", "LEVEL", "OWNER", "PROBLEM", "PARAMETERS"}, rows);
    }
    return kSuccess;
}

}  // namespace zelvek::cli
