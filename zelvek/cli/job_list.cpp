#include "zelvek/cli/job_list.h"

#include <json/json.h>

#include <algorithm>
#include <cstddef>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/base/authority.h"
#include "zelvek/base/error.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/job_view.h"
#include "zelvek/cli/json_output.h"
#include "zelvek/cli/pages.h"
#include "zelvek/cli/table.h"
#include "zelvek/records/next_step.h"

namespace zelvek::cli {

namespace {

struct JobListOptions {
    PlacedPart part;
    std::string user;
    std::string state;
    std::string name;
    std::optional<int> days;
    bool json = false;
};

std::map<std::string, std::string> ListParameters(const JobListOptions& options) {
    std::map<std::string, std::string> parameters;
    if (!options.user.empty()) parameters["user_name"] = options.user;
    if (!options.state.empty()) parameters["state"] = options.state;
    if (!options.name.empty()) parameters["name"] = options.name;
    if (options.days) parameters["expires_within"] = str::Str(*options.days);
    if (parameters.count("state") + parameters.count("name") + parameters.count("expires_within") > 1)
        throw Error(Code::kValue, "--state, --name and --expires-within: choose one");
    return parameters;
}

using Row = std::vector<std::string>;

constexpr std::ptrdiff_t kAuthority = 3;  // the column

Row RowOf(const vek_xml::Node& job, const std::string& now) {
    return {job.Value("id"),
            job.Value("certname"),
            job.Value("user_name"),
            job.Value("authority"),
            job.Value("check_type"),
            StateOf(job),
            records::DayOf(job.Value("expires")),
            records::NextStep(job, now)};
}

/// Where all jobs have the first authority, nobody needs to be told.
std::string TableOf(std::vector<Row> rows) {
    Row header{"ID", "CERTIFICATE", "USER", "AUTHORITY", "CHECK", "STATE", "EXPIRES", "NEXT STEP"};
    const bool one = std::all_of(rows.begin(), rows.end(),
                                 [](const Row& row) { return row[kAuthority] == authorities::kFirst; });
    if (one) {
        header.erase(header.begin() + kAuthority);
        for (Row& row : rows) row.erase(row.begin() + kAuthority);
    }
    return OutputTable(header, rows);
}

int ListJobs(const JobListOptions& options) {
    const auto chosen = ListParameters(options);
    const auto ask = [&](std::map<std::string, std::string> parameters) {
        parameters.insert(chosen.begin(), chosen.end());
        return Ask("zelvek.job.attention", parameters);
    };
    const std::string now = vek_date::DateTime().AsDateTime();
    Json::Value json(Json::arrayValue);
    std::vector<Row> rows;
    ForEachPlaced(ask, options.part, [&](const vek_xml::Node& job) {
        if (options.json) {
            json.append(JobJson(job));
        } else {
            rows.push_back(RowOf(job, now));
        }
    });
    if (options.json) {
        PrintJson(json);
    } else {
        std::cout << TableOf(std::move(rows));
    }
    return kSuccess;
}

}  // namespace

void AddJobListCommand(Command& noun) {
    const auto options = std::make_shared<JobListOptions>();
    Command list = noun.AddCommand("list", "Shows the jobs, those that need attention first",
                                   [options] { return ListJobs(*options); });
    AddJsonFlag(list, options->json);
    list.AddOption("--limit", options->part.limit, "At most so many").Positive();
    list.AddOption("--after", options->part.after, "Only jobs that stand after this one in the list");
    list.AddOption("--user", options->user, "Of this user alone");
    list.AddOption("--state", options->state, "In this state alone; expiring: within 30 days")
        .OneOf({"due", "waiting", "failed", "running", "verified", "expiring", "paused", "all"});
    list.AddOption("--name", options->name, "With just this domain name among theirs");
    list.AddOption("--expires-within", options->days, "Whose certificates end within so many days")
        .Between(0, 36500);
}

}  // namespace zelvek::cli
