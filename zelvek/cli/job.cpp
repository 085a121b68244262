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
#include "zelvek/base/text.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/cli.h"
#include "zelvek/cli/job_list.h"
#include "zelvek/cli/job_run.h"
#include "zelvek/cli/job_view.h"
#include "zelvek/cli/json_output.h"

namespace zelvek::cli {

namespace {

struct NewJobOptions {
    std::string name, user;
    std::vector<std::string> aliases;
    std::string check = "http";
    std::string certname, authority, res_name;
    std::vector<std::string> csr;  // KEY=VALUE
    bool foreign_names = false;
    bool skip_account_check = false;
    int max_account_checks = 3;
    bool json = false;
};

/// Names are separated by blanks: what holds one, or nothing, is refused here.
std::string Joined(const std::vector<std::string>& aliases) {
    std::string joined;
    for (const auto& alias : aliases) {
        if (alias.empty() || alias.find(' ') != std::string::npos) {
            throw Error(Code::kValue, "alias", alias, "\"" + alias + "\" is no domain name");
        }
        str::inpl::Append(joined, alias, " ");
    }
    return joined;
}

void AddRequest(std::map<std::string, std::string>& parameters, const std::vector<std::string>& csr) {
    for (std::string entry : csr) {
        const std::string key = str::GetWord(entry, '=');
        parameters["csr_" + key] = entry;
    }
}

std::map<std::string, std::string> Parameters(const NewJobOptions& job) {
    std::map<std::string, std::string> parameters{
        {"domain", job.name},
        {"user_name", job.user},
        {"check_type", job.check},
        {"certname", job.certname},
        {"authority", job.authority},
        {"res_name", job.res_name},
        {"skip_account_check", job.skip_account_check ? "on" : "off"},
        {"max_account_check_attempts", str::Str(job.max_account_checks)}};
    if (job.foreign_names) parameters["foreign_names"] = "on";
    if (!job.aliases.empty()) parameters["aliases"] = Joined(job.aliases);
    AddRequest(parameters, job.csr);
    return parameters;
}

int AddJob(const NewJobOptions& options) {
    const std::string id = Ask("zelvek.job.add", Parameters(options)).value("id");
    if (options.json) {
        PrintJson(JobJson(AskForJob(str::Int(id))));
    } else {
        std::cout << "job " << id << " added\n";
    }
    return kSuccess;
}

/// What is not given stays as it is.
struct EditOptions {
    int id = 0;
    std::string user, name, check, authority, res_name;
    std::vector<std::string> aliases, csr;
    bool no_aliases = false;
    bool plain_csr = false;
    bool foreign_names = false;
    bool json = false;
};

std::map<std::string, std::string> Parameters(const EditOptions& job) {
    std::map<std::string, std::string> parameters;
    if (!job.name.empty()) parameters["domain"] = job.name;
    if (!job.check.empty()) parameters["check_type"] = job.check;
    if (!job.authority.empty()) parameters["authority"] = job.authority;
    if (!job.res_name.empty()) parameters["res_name"] = job.res_name;
    if (!job.aliases.empty() || job.no_aliases) parameters["aliases"] = Joined(job.aliases);
    if (job.plain_csr) parameters["plain_csr"] = "on";
    AddRequest(parameters, job.csr);
    if (parameters.empty()) throw Error(Code::kValue, "say what is to be changed of the job (--help)");
    if (job.foreign_names) parameters["foreign_names"] = "on";
    parameters["elid"] = str::Str(job.id);
    if (!job.user.empty()) parameters["user_name"] = job.user;
    return parameters;
}

int Edit(const EditOptions& options) {
    Ask("zelvek.job.edit", Parameters(options));
    if (options.json) {
        PrintJson(JobJson(AskForJob(options.id)));
    } else {
        std::cout << "job " << options.id
                  << " edited: it begins anew, its certificate stays until the new one is there\n";
    }
    return kSuccess;
}

/// Which jobs a command is for: just one of these, but that the user of a single job can be named.
struct ChosenJobs {
    std::optional<int> id;
    std::string user;
    std::optional<int> days;
    bool all = false;
    bool json = false;

    std::map<std::string, std::string> Parameters() const {
        const int ways = (id || !user.empty() ? 1 : 0) + (days ? 1 : 0) + (all ? 1 : 0);
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
    std::string user;
    bool json = false;
};

int ShowJob(const JobOptions& options) {
    const auto shown = AskForJob(options.id, options.user);
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

int Change(const JobOptions& options, const std::string& function, const std::string& done) {
    std::map<std::string, std::string> parameters{{"elid", str::Str(options.id)}};
    if (!options.user.empty()) parameters["user_name"] = options.user;
    Ask(function, parameters);
    if (options.json) {
        PrintJson(JobJson(AskForJob(options.id)));
    } else {
        std::cout << "job " << options.id << " " << done << "\n";
    }
    return kSuccess;
}

int Pause(const JobOptions& options) {
    return Change(options, "zelvek.job.pause", "paused: no run of it begins until it is resumed");
}

int Resume(const JobOptions& options) { return Change(options, "zelvek.job.resume", "resumed"); }

struct JobRemovalOptions {
    int id = 0;
    std::string user;
    bool certificate = false;
    bool json = false;
};

std::string TextOfRemoval(const JobRemovalOptions& options, const std::string& place, bool placeholder) {
    const std::string job = "job " + str::Str(options.id) + " removed";
    if (place.empty()) return job + "; no certificate of it was installed";
    const std::string what =
        placeholder ? "the placeholder that only lets the web server start" : "its certificate";
    if (!options.certificate) return job + "; " + what + " stays in " + place;
    return job + " with " + what + ": the web server's configuration must not name " + place +
           " any more, then have it reloaded";
}

int RemoveJob(const JobRemovalOptions& options) {
    std::map<std::string, std::string> parameters{{"elid", str::Str(options.id)}};
    if (options.certificate) parameters["certificate"] = "on";
    if (!options.user.empty()) parameters["user_name"] = options.user;
    const auto answer = Ask("zelvek.job.remove", parameters);
    const std::string place = answer.value("place");
    const bool placeholder = answer.value("placeholder") == "on";
    if (!options.json) {
        std::cout << WithoutControls(TextOfRemoval(options, place, placeholder), ' ') << "\n";
        return kSuccess;
    }
    Json::Value json;
    json["id"] = options.id;
    json["certificate"] = place;
    json["placeholder"] = placeholder;
    json["certificate_removed"] = options.certificate && !place.empty();
    PrintJson(json);
    return kSuccess;
}

std::string CsrHelp() {
    std::string help = "KEY=VALUE for the request, such as key_type=ec; repeatable";
    for (const RequestKey& one : kRequestKeys) help += std::string("\n") + one.key + ": " + one.values;
    return help;
}

void AddCsrOption(Command& command, std::vector<std::string>& csr) {
    command.AddOption("--csr", csr, CsrHelp()).Check([](const std::string& text) {
        return text.find('=') == std::string::npos ? "\"" + text + "\" is no KEY=VALUE" : std::string();
    });
}

void AddJobAddCommand(Command& noun) {
    const auto options = std::make_shared<NewJobOptions>();
    Command add = noun.AddCommand("add", "Asks for a certificate", [options] { return AddJob(*options); });
    AddJsonFlag(add, options->json);
    add.AddOption("NAME", options->name, "Main domain name").Required();
    add.AddOption("--user", options->user, "Owner of the certificate").Required();
    add.AddOption("--alias", options->aliases, "A further name; repeatable");
    add.AddOption("--check", options->check, "How names are proved: http or dns").OneOf({"http", "dns"});
    add.AddOption("--certname", options->certname, "Name of the certificate; without it, NAME");
    add.AddOption("--authority", options->authority, "Who issues it (\"zelvek authority list\")").NotEmpty();
    add.AddOption("--res-name", options->res_name, "A further addressee of notifications");
    AddCsrOption(add, options->csr);
    add.AddFlag("--foreign-names", options->foreign_names, "Names may lie outside the owner's domains");
    add.AddFlag("--skip-account-check", options->skip_account_check, "Use the account without asking for it");
    add.AddOption("--max-account-checks", options->max_account_checks,
                  "Failed checks before a new account is made")
        .NonNegative();
}

/// For the panel, which passes on whose pages are asked for.
void AddUserOption(Command& command, std::string& user) {
    command.AddOption("--user", user, "Only where the job is this user's").NotEmpty();
}

void AddEditCommand(Command& noun) {
    const auto options = std::make_shared<EditOptions>();
    Command edit = noun.AddCommand("edit", "Changes what is given of a job, which begins anew",
                                   [options] { return Edit(*options); });
    AddJsonFlag(edit, options->json);
    edit.AddOption("ID", options->id, "The job's number").Required();
    AddUserOption(edit, options->user);
    edit.AddOption("--name", options->name, "Another main domain name").NotEmpty();
    edit.AddOption("--alias", options->aliases, "A further name, instead of all it had; repeatable");
    edit.AddFlag("--no-aliases", options->no_aliases, "No further names");
    edit.AddOption("--check", options->check, "How names are proved: http or dns").OneOf({"http", "dns"});
    edit.AddOption("--authority", options->authority, "Another one who issues it").NotEmpty();
    edit.AddOption("--res-name", options->res_name, "Another further addressee of notifications").NotEmpty();
    AddCsrOption(edit, options->csr);
    edit.AddFlag("--plain-csr", options->plain_csr, "Nothing in the request but what --csr says");
    edit.AddFlag("--foreign-names", options->foreign_names, "New names may lie outside the owner's domains");
}

void AddChoice(Command& command, ChosenJobs& jobs) {
    AddJsonFlag(command, jobs.json);
    command.AddOption("ID", jobs.id, "The job's number");
    command.AddOption("--user", jobs.user, "All of this user; with ID, that one if it is this user's")
        .NotEmpty();
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
    AddUserOption(command, options->user);
}

void AddJobRemoveCommand(Command& noun) {
    const auto options = std::make_shared<JobRemovalOptions>();
    Command remove = noun.AddCommand("remove", "Forgets a job; its certificate stays, unless it is to go",
                                     [options] { return RemoveJob(*options); });
    AddJsonFlag(remove, options->json);
    remove.AddOption("ID", options->id, "The job's number").Required();
    AddUserOption(remove, options->user);
    remove.AddFlag("--certificate", options->certificate,
                   "Its installed certificate, too; the web server is not reloaded");
}

}  // namespace

void AddJobCommands(Command& root) {
    Command noun = root.AddGroup("job", "Certificate jobs");
    AddJobAddCommand(noun);
    AddJobListCommand(noun);
    AddJobCommand(noun, "show", "Shows a job and its history", &ShowJob);
    AddJobRunCommand(noun);
    AddEditCommand(noun);
    AddRenewCommand(noun);
    AddRetryCommand(noun);
    AddJobCommand(noun, "pause", "Starts no run of a job until it is resumed", &Pause);
    AddJobCommand(noun, "resume", "Ends a job's pause", &Resume);
    AddJobRemoveCommand(noun);
}

}  // namespace zelvek::cli
