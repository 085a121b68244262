#include <json/json.h>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "vek/str.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/cli.h"
#include "zelvek/cli/job_view.h"
#include "zelvek/cli/json_output.h"
#include "zelvek/cli/status_check.h"
#include "zelvek/cli/table.h"
#include "zelvek/records/next_step.h"
#include "zelvek/records/status_record.h"

namespace zelvek::cli {

namespace {

std::string AccountText(const vek_client::Result& status) {
    const std::string kid = status.value("kid");
    if (kid.empty()) return "none yet";
    return kid + (status.value("key") == "on" ? "" : ", without a key");
}

std::string CountsText(const vek_client::Result& status) {
    const auto counts = status.xml().GetNode("/doc/jobs");
    std::string text;
    for (const char* state : records::kStates)
        str::inpl::Append(text, counts.Value(state) + " " + state, ", ");
    return text;
}

/// Where there are more than the one that new jobs get.
void PrintAuthorities(const vek_client::Result& status) {
    std::vector<std::vector<std::string>> rows;
    for (const auto& node : status.xml().GetNodes("/doc/used")) {
        const std::string directory = node.Value("directory");
        rows.push_back({node.Value("name"), node.Value("jobs"),
                        node.Value("kid").empty() ? "none yet" : node.Value("kid"),
                        directory.empty() ? "its plug-in is gone" : directory});
    }
    if (rows.size() > 1)
        std::cout << "\nAuthorities in use\n" << OutputTable({"NAME", "JOBS", "ACCOUNT", "DIRECTORY"}, rows);
}

void Print(const vek_client::Result& status) {
    std::cout << OutputTable(
        {"SERVICE", "zelvek " + status.value("version")},
        {{"since", status.value("started") + " UTC"},
         {"database", status.value("database")},
         {"scheduler", status.value("scheduler") == "on" ? "on" : "off: no run starts by itself"},
         {"runs under way", status.value("runs")},
         {"authority", status.value("authority")},
         {"default account", AccountText(status)},
         {"jobs", CountsText(status)}});
    PrintAuthorities(status);
    std::vector<std::vector<std::string>> ending;
    for (const auto& node : status.xml().GetNodes("/doc/ending"))
        ending.push_back({node.Value("id"), node.Value("certname"), node.Value("user_name"),
                          records::DayOf(node.Value("expires"))});
    if (!ending.empty())
        std::cout << "\nWhat expires next\n" << OutputTable({"ID", "CERTIFICATE", "USER", "EXPIRES"}, ending);
    std::vector<std::vector<std::string>> failures;
    for (const auto& node : status.xml().GetNodes("/doc/failure"))
        failures.push_back(
            {node.Value("id"), node.Value("certname"), node.Value("user_name"), LastError(node)});
    if (!failures.empty())
        std::cout << "\nWhat failed\n" << OutputTable({"ID", "CERTIFICATE", "USER", "WHY"}, failures);
}

}  // namespace

void AddStatusCommand(Command& root) {
    const auto json = std::make_shared<bool>(false);
    const auto check = std::make_shared<bool>(false);
    Command status = root.AddCommand("status", "Shows the service and its jobs in short", [json, check] {
        if (*check) return CheckStatus(*json);
        const auto answer = Ask("zelvek.status", {});
        if (*json) {
            PrintJson(records::StatusJson(answer));
        } else {
            Print(answer);
        }
        return static_cast<int>(kSuccess);
    });
    AddJsonFlag(status, *json);
    status.AddFlag("--check", *check,
                   "One line for monitoring; exit status 0 all is well, 1 jobs fail, 2 a certificate ends or "
                   "the service is away");
}

}  // namespace zelvek::cli
