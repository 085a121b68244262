#include <json/json.h>

#include <iostream>

#include "zelvek/cli/cli.h"
#include "zelvek/cli/table.h"

namespace zelvek::cli {

namespace {

Json::Value ToJson(const vek_xml::Node& problem, const std::vector<vek_xml::Node>& parameters) {
    Json::Value json;
    for (const char* key : {"id", "name", "level", "owner", "time"}) json[key] = problem.Value(key);
    json["parameters"] = Json::objectValue;
    for (const auto& parameter : parameters)
        json["parameters"][parameter.Value("name")] = parameter.Value("value");
    return json;
}

std::string OneLine(const std::vector<vek_xml::Node>& parameters) {
    std::string line;
    for (const auto& parameter : parameters) {
        line += (line.empty() ? "" : ", ") + parameter.Value("name") + "=" + parameter.Value("value");
    }
    return line;
}

}  // namespace

int ListProblems(const Output& output) {
    const auto answer = Ask("zelvek.problem.list", {});
    Json::Value json(Json::arrayValue);
    std::vector<std::vector<std::string>> rows;
    const auto problems = answer.xml().GetNodes("/doc/elem");
    for (std::size_t i = 0; i < problems.size(); ++i) {
        const auto& problem = problems[i];
        const auto parameters = answer.xml().GetNodes("/doc/elem[" + std::to_string(i + 1) + "]/parameter");
        json.append(ToJson(problem, parameters));
        rows.push_back({problem.Value("time"), problem.Value("level"), problem.Value("owner"),
                        problem.Value("name"), OneLine(parameters)});
    }
    if (output.json) {
        PrintJson(json);
    } else {
        std::cout << Table({"TIME", "LEVEL", "OWNER", "PROBLEM", "PARAMETERS"}, rows);
    }
    return kSuccess;
}

}  // namespace zelvek::cli
