#include <json/json.h>

#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/html_text.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/cli.h"
#include "zelvek/cli/json_output.h"
#include "zelvek/cli/pages.h"
#include "zelvek/cli/table.h"

namespace zelvek::cli {

namespace {

Json::Value ProblemJson(const vek_xml::Node& problem) {
    Json::Value json;
    json["number"] = str::Int(problem.Value("number"));  // what "--after" takes
    for (const char* key : {"id", "name", "level", "owner", "user_name", "state", "since", "time"})
        json[key] = problem.Value(key);
    json["times"] = str::Int(problem.Value("times"));
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

struct ProblemListOptions {
    Part part;
    std::string state = "open";
    bool json = false;
};

int ListProblems(const ProblemListOptions& options) {
    const auto ask = [&](std::map<std::string, std::string> parameters) {
        parameters["state"] = options.state;
        return Ask("zelvek.problem.list", parameters);
    };
    Json::Value json(Json::arrayValue);
    std::vector<std::vector<std::string>> rows;
    ForEachEntry(ask, "number", options.part, [&](const vek_xml::Node& problem) {
        json.append(ProblemJson(problem));
        rows.push_back({problem.Value("number"), problem.Value("time"), problem.Value("state"),
                        problem.Value("level"), problem.Value("owner"), problem.Value("name"),
                        ParameterLine(problem)});
    });
    if (options.json) {
        PrintJson(json);
    } else {
        std::cout << OutputTable({"NUMBER", "TIME", "STATE", "LEVEL", "OWNER", "PROBLEM", "PARAMETERS"},
                                 rows);
    }
    return kSuccess;
}

struct SeenOptions {
    std::optional<int> number;
    bool all = false;
    bool json = false;
};

int SetSeen(const SeenOptions& options) {
    if (options.number.has_value() == options.all)
        throw Error(Code::kValue, "say just once which notifications are meant: by NUMBER or by --all");
    std::map<std::string, std::string> parameters;
    if (options.number) parameters["number"] = str::Str(*options.number);
    const int count = str::Int(Ask("zelvek.problem.seen", parameters).value("count"));
    if (options.json) {
        Json::Value json;
        json["count"] = count;
        PrintJson(json);
    } else {
        std::cout << count << (count == 1 ? " notification" : " notifications") << " seen\n";
    }
    return kSuccess;
}

void AddSeenCommand(Command& noun) {
    const auto options = std::make_shared<SeenOptions>();
    Command seen = noun.AddCommand("seen", "Takes note of notifications, which stay open until they are over",
                                   [options] { return SetSeen(*options); });
    AddJsonFlag(seen, options->json);
    seen.AddOption("NUMBER", options->number, "The notification's number");
    seen.AddFlag("--all", options->all, "All");
}

}  // namespace

void AddProblemCommands(Command& root) {
    Command noun = root.AddGroup("problem", "Notifications");
    const auto options = std::make_shared<ProblemListOptions>();
    Command list =
        noun.AddCommand("list", "Shows the notifications", [options] { return ListProblems(*options); });
    AddJsonFlag(list, options->json);
    AddPartOptions(list, options->part, "Only notifications with a greater number than this");
    list.AddOption("--state", options->state, "In this state alone")
        .OneOf({"open", "raised", "seen", "resolved", "news", "all"});
    AddSeenCommand(noun);
}

}  // namespace zelvek::cli
