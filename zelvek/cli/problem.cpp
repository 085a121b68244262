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
#include "zelvek/records/problem_record.h"

namespace zelvek::cli {

namespace {

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
    std::string user;
    bool json = false;
};

int ListProblems(const ProblemListOptions& options) {
    const auto ask = [&](std::map<std::string, std::string> parameters) {
        parameters["state"] = options.state;
        if (!options.user.empty()) parameters["user_name"] = options.user;
        return Ask("zelvek.problem.list", parameters);
    };
    Json::Value json(Json::arrayValue);
    std::vector<std::vector<std::string>> rows;
    ForEachEntry(ask, "number", options.part, [&](const vek_xml::Node& problem) {
        json.append(records::ProblemJson(problem));
        rows.push_back({problem.Value("number"), problem.Value("time"), problem.Value("state"),
                        problem.Value("level"), problem.Value("owner"), problem.Value("name"),
                        ParameterLine(problem)});
    });
    if (options.json) {
        PrintJson(json);
    } else {
        std::cout << OutputTable({"NUMBER", "TIME (UTC)", "STATE", "LEVEL", "OWNER", "PROBLEM", "PARAMETERS"},
                                 rows);
    }
    return kSuccess;
}

/// Which notifications are meant: just one, or all.
struct ChosenProblems {
    std::optional<int> number;
    bool all = false;
    bool json = false;
};

int ChangeProblems(const std::string& function, const std::string& done, const ChosenProblems& options) {
    if (options.number.has_value() == options.all)
        throw Error(Code::kValue, "say just once which notifications are meant: by NUMBER or by --all");
    std::map<std::string, std::string> parameters;
    if (options.number) parameters["number"] = str::Str(*options.number);
    const int count = str::Int(Ask(function, parameters).value("count"));
    if (options.json) {
        Json::Value json;
        json["count"] = count;
        PrintJson(json);
    } else {
        std::cout << count << (count == 1 ? " notification " : " notifications ") << done << "\n";
    }
    return kSuccess;
}

void AddProblemChange(Command& noun, const std::string& name, const std::string& description,
                      const std::string& done) {
    const auto options = std::make_shared<ChosenProblems>();
    Command change = noun.AddCommand(name, description, [name, done, options] {
        return ChangeProblems("zelvek.problem." + name, done, *options);
    });
    AddJsonFlag(change, options->json);
    change.AddOption("NUMBER", options->number, "The notification's number");
    change.AddFlag("--all", options->all, "All");
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
    list.AddOption("--user", options->user, "About this user's certificates alone").NotEmpty();
    AddProblemChange(noun, "seen", "Takes note of notifications, which stay open until they are over",
                     "seen");
    AddProblemChange(noun, "clear", "Dismisses notifications; what comes again of a cause is raised anew",
                     "cleared");
}

}  // namespace zelvek::cli
