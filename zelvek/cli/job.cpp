#include <json/json.h>

#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/request_keys.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/cli.h"
#include "zelvek/cli/job_run.h"
#include "zelvek/cli/job_view.h"
#include "zelvek/cli/json_output.h"
#include "zelvek/cli/pages.h"
#include "zelvek/cli/table.h"

namespace zelvek::cli {

namespace {

struct AddOptions {
    std::string name, user;
    std::vector<std::string> aliases;
    std::string check = "http";
    std::string certname, res_name;
    std::vector<std::string> csr;  // KEY=VALUE
    bool foreign_names = false;
    bool skip_account_check = false;
    int max_account_checks = 3;
    bool json = false;
};

std::map<std::string, std::string> Parameters(const AddOptions& job) {
    std::map<std::string, std::string> parameters{
        {"domain", job.name},
        {"user_name", job.user},
        {"check_type", job.check},
        {"certname", job.certname},
        {"res_name", job.res_name},
        {"skip_account_check", job.skip_account_check ? "on" : "off"},
        {"max_account_check_attempts", str::Str(job.max_account_checks)}};
    if (job.foreign_names) parameters["foreign_names"] = "on";
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

int Add(const AddOptions& options) {
    const std::string id = Ask("zelvek.job.add", Parameters(options)).value("id");
    if (options.json) {
        PrintJson(JobJson(AskForJob(str::Int(id))));
    } else {
        std::cout << "job " << id << " added\n";
    }
    return kSuccess;
}

struct ListOptions {
    Part part;
    std::string user;
    std::string state;
    bool json = false;
};

int List(const ListOptions& options) {
    const auto ask = [&](std::map<std::string, std::string> parameters) {
        if (!options.user.empty()) parameters["user_name"] = options.user;
        if (!options.state.empty()) parameters["state"] = options.state;
        return Ask("zelvek.job.list", parameters);
    };
    Json::Value json(Json::arrayValue);
    std::vector<std::vector<std::string>> rows;
    ForEachEntry(ask, "id", options.part, [&](const vek_xml::Node& job) {
        if (options.json) {
            json.append(JobJson(job));
        } else {
            rows.push_back(JobRow(job));
        }
    });
    if (options.json) {
        PrintJson(json);
    } else {
        std::cout << Table(JobHeadings(), rows);
    }
    return kSuccess;
}

/// Which jobs a command is for: just one of these.
struct ChosenJobs {
    std::optional<int> id;
    std::string user;
    std::optional<int> days;
    bool all = false;
    bool json = false;

    std::map<std::string, std::string> Parameters() const {
        const int ways = (id ? 1 : 0) + (user.empty() ? 0 : 1) + (days ? 1 : 0) + (all ? 1 : 0);
        if (ways != 1)
            throw Error(Code::kValue, "say just once which jobs are meant: by ID or by one option");
        std::map<std::string, std::string> parameters;
        if (id) parameters["elid"] = str::Str(*id);
        if (days) parameters["days"] = str::Str(*days);
        if (!user.empty()) parameters["user_name"] = user;
        return parameters;
    }
};

/// Asks the function for the jobs and says how many there were.
int StartChosen(const std::string& function, const ChosenJobs& jobs, const std::string& done) {
    const int count = str::Int(Ask(function, jobs.Parameters()).value("count"));
    if (jobs.json) {
        Json::Value json;
        json["count"] = count;
        PrintJson(json);
    } else {
        std::cout << count << (count == 1 ? " job " : " jobs ") << done << "\n";
    }
    return kSuccess;
}

/// Of the commands that do one thing to one job.
struct JobOptions {
    int id = 0;
    bool json = false;
};

int Show(const JobOptions& options) {
    const auto shown = AskForJob(options.id);
    if (options.json) {
        PrintJson(JobJson(shown));
        return kSuccess;
    }
    const std::string sentence = JobSentence(shown);
    if (!sentence.empty()) std::cout << sentence << "\n";
    std::cout << JobTable(shown);
    const std::string findings = JobFindings(shown);
    if (!findings.empty()) std::cout << "\n" << findings;
    const std::string events = EventTable(shown, 0);
    if (!events.empty()) std::cout << "\n" << events;
    return kSuccess;
}

int Remove(const JobOptions& options) {
    Ask("zelvek.job.remove", {{"elid", str::Str(options.id)}});
    if (!options.json) {
        std::cout << "job " << options.id << " removed\n";
        return kSuccess;
    }
    Json::Value json;
    json["id"] = options.id;
    PrintJson(json);
    return kSuccess;
}

std::string CsrHelp() {
    std::string help = "KEY=VALUE for the request, such as key_type=ec; repeatable";
    for (const RequestKey& one : kRequestKeys) help += std::string("\n") + one.key + ": " + one.values;
    return help;
}

void AddAddCommand(Command& noun) {
    const auto options = std::make_shared<AddOptions>();
    Command add = noun.AddCommand("add", "Asks for a certificate", [options] { return Add(*options); });
    AddJsonFlag(add, options->json);
    add.AddOption("NAME", options->name, "Main domain name").Required();
    add.AddOption("--user", options->user, "Owner of the certificate").Required();
    add.AddOption("--alias", options->aliases, "A further name; repeatable");
    add.AddOption("--check", options->check, "How names are proved: http or dns").OneOf({"http", "dns"});
    add.AddOption("--certname", options->certname, "Name of the certificate; without it, NAME");
    add.AddOption("--res-name", options->res_name, "A further addressee of notifications");
    add.AddOption("--csr", options->csr, CsrHelp()).Check([](const std::string& text) {
        return text.find('=') == std::string::npos ? "\"" + text + "\" is no KEY=VALUE" : std::string();
    });
    add.AddFlag("--foreign-names", options->foreign_names, "Names may lie outside the owner's domains");
    add.AddFlag("--skip-account-check", options->skip_account_check, "Use the account without asking for it");
    add.AddOption("--max-account-checks", options->max_account_checks,
                  "Failed checks before a new account is made")
        .NonNegative();
}

void AddListCommand(Command& noun) {
    const auto options = std::make_shared<ListOptions>();
    Command list = noun.AddCommand("list", "Shows the jobs", [options] { return List(*options); });
    AddJsonFlag(list, options->json);
    AddPartOptions(list, options->part, "Only jobs with a greater number than this");
    list.AddOption("--user", options->user, "Of this user alone");
    list.AddOption("--state", options->state, "In this state alone").OneOf(JobStates());
}

void AddChoice(Command& command, ChosenJobs& jobs) {
    AddJsonFlag(command, jobs.json);
    command.AddOption("ID", jobs.id, "The job's number");
    command.AddOption("--user", jobs.user, "All of this user");
    command.AddFlag("--all", jobs.all, "All");
}

void AddRenewCommand(Command& noun) {
    const auto jobs = std::make_shared<ChosenJobs>();
    Command renew = noun.AddCommand("renew", "Renews installed certificates now", [jobs] {
        return StartChosen("zelvek.job.renew", *jobs, "started for a renewal");
    });
    AddChoice(renew, *jobs);
    renew.AddOption("--expiring", jobs->days, "All that end within so many days").Between(0, 10000);
}

void AddRetryCommand(Command& noun) {
    const auto jobs = std::make_shared<ChosenJobs>();
    Command retry = noun.AddCommand("retry", "Tries jobs without a certificate again now",
                                    [jobs] { return StartChosen("zelvek.job.retry", *jobs, "tried again"); });
    AddChoice(retry, *jobs);
}

/// A command for one job.
void AddJobCommand(Command& noun, const std::string& name, const std::string& description,
                   int (*action)(const JobOptions&)) {
    const auto options = std::make_shared<JobOptions>();
    Command command = noun.AddCommand(name, description, [options, action] { return action(*options); });
    AddJsonFlag(command, options->json);
    command.AddOption("ID", options->id, "The job's number").Required();
}

}  // namespace

void AddJobCommands(Command& root) {
    Command noun = root.AddGroup("job", "Certificate jobs");
    AddAddCommand(noun);
    AddListCommand(noun);
    AddJobCommand(noun, "show", "Shows a job and its history", &Show);
    AddJobRunCommand(noun);
    AddRenewCommand(noun);
    AddRetryCommand(noun);
    AddJobCommand(noun, "remove", "Forgets a job; its certificate stays", &Remove);
}

}  // namespace zelvek::cli
