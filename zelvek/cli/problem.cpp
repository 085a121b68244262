#include <json/json.h>

#include <iostream>
#include <memory>

#include "vek/str.h"
#include "zelvek/base/html_text.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/cli.h"
#include "zelvek/cli/json_output.h"
#include "zelvek/cli/pages.h"
#include "zelvek/cli/table.h"

namespace zelvek::cli {

namespace {

Json::Value ToJson(const vek_xml::Node& problem) {
    Json::Value json;
    json["number"] = str::Int(problem.Value("number"));  // what "--after" takes
    for (const char* key : {"id", "name", "level", "owner", "time"}) json[key] = problem.Value(key);
    json["parameters"] = Json::objectValue;
    for (const auto& parameter : problem.Children("parameter"))
        json["parameters"][parameter.Value("name")] = parameter.Value("value");
    return json;
}

std::string ParameterLine(const vek_xml::Node& problem) {
    std::string line;
    for (const auto& parameter : problem.Children("parameter")) {
        line +=
            (line.empty() ? "" : ", ") + parameter.Value("name") + "=" + TextOfHtml(parameter.Value("value"));
    }
    return line;
}

struct ListOptions {
    Part part;
    bool json = false;
};

int List(const ListOptions& options) {
    const auto ask = [](const std::map<std::string, std::string>& parameters) {
        return Ask("zelvek.problem.list", parameters);
    };
    Json::Value json(Json::arrayValue);
    std::vector<std::vector<std::string>> rows;
    ForEachEntry(ask, "number", options.part, [&](const vek_xml::Node& problem) {
        json.append(ToJson(problem));
        rows.push_back({problem.Value("time"), problem.Value("level"), problem.Value("owner"),
                        problem.Value("name"), ParameterLine(problem)});
    });
    if (options.json) {
        PrintJson(json);
    } else {
        std::cout << OutputTable({"TIME", "LEVEL", "OWNER", "PROBLEM", "PARAMETERS"}, rows);
    }
    return kSuccess;
}

}  // namespace

void AddProblemCommands(Command& root) {
    Command noun = root.AddGroup("problem", "Notifications");
    const auto options = std::make_shared<ListOptions>();
    Command list = noun.AddCommand("list", "Shows the notifications", [options] { return List(*options); });
    AddJsonFlag(list, options->json);
    AddPartOptions(list, options->part, "Only notifications with a greater number than this");
}

}  // namespace zelvek::cli
