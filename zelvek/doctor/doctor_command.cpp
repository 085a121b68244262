#include "zelvek/doctor/doctor_command.h"

#include <json/json.h>

#include <algorithm>
#include <exception>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <set>

#include "vek/str.h"
#include "zelvek/base/authority.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/base/run_directory.h"
#include "zelvek/base/service_user.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/json_output.h"
#include "zelvek/cli/pages.h"
#include "zelvek/cli/table.h"
#include "zelvek/doctor/check.h"
#include "zelvek/doctor/machine.h"
#include "zelvek/doctor/network.h"
#include "zelvek/service/serve_command.h"
#include "zelvek/store/engines.h"
#include "zelvek/store/integrity.h"

namespace zelvek {

namespace {

using doctor::Check;
using doctor::Checks;

struct DoctorOptions {
    std::string config = "/etc/zelvek/zelvek.conf";
    std::vector<std::string> names;
    int most_names = 20;
    bool json = false;
};

void Append(Checks& checks, Checks more) {
    checks.insert(checks.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

/// What the running service says of itself, and what of its jobs matters here.
struct Panel {
    bool runs = false;
    std::vector<std::string> names;  // proved by http-01, each once
    bool more_names = false;
};

void LookAtService(Panel& panel, Checks& checks) {
    try {
        const auto status = cli::Ask("zelvek.status", {});
        panel.runs = true;
        checks.push_back(doctor::Fine("service", "zelvek " + status.value("version") + " answers"));
        if (status.value("scheduler") != "on")
            checks.push_back(
                doctor::Note("scheduler", "off: no run starts by itself", "scheduler=on in zelvek.conf"));
        const int failed = str::Int(status.xml().GetNode("/doc/jobs").Value("failed"));
        if (failed > 0)
            checks.push_back(
                doctor::Note("jobs", str::Str(failed) + " stopped", "zelvek job list --state failed"));
    } catch (const Error& error) {
        checks.push_back(
            doctor::Wrong("service", error.what(), "systemctl status zelvek, journalctl -u zelvek"));
    }
}

void LookAtCertificates(Checks& checks) {
    constexpr int kSoon = 14;  // days: renewed ones do not get that old
    const auto ask = [](std::map<std::string, std::string> parameters) {
        parameters["expires_within"] = str::Str(kSoon);
        return cli::Ask("zelvek.job.attention", parameters);
    };
    int ending = 0;
    std::string first;
    cli::ForEachPlaced(ask, {}, [&](const vek_xml::Node& job) {
        if (job.Value("renew") > job.Value("expires") || job.Value("failures") == "0") return;
        if (ending++ == 0) first = job.Value("certname") + " ends at " + job.Value("expires") + " UTC";
    });
    if (ending == 0) {
        checks.push_back(
            doctor::Fine("expiry", "no certificate ends within two weeks because its renewal fails"));
    } else {
        checks.push_back(
            doctor::Wrong("expiry", str::Str(ending) + " end within two weeks and are not renewed: " + first,
                          "zelvek job list --expires-within 14"));
    }
    const auto answer = cli::Ask("zelvek.problem.list", {{"state", "open"}, {"limit", "1000"}});
    const auto problems = answer.xml().GetNodes("/doc/elem");
    const auto old = std::count_if(problems.begin(), problems.end(), [](const vek_xml::Node& problem) {
        return problem.Value("name") == "old_certificate_served";
    });
    if (old > 0)
        checks.push_back(doctor::Wrong(
            "served", str::Str(static_cast<int>(old)) + " certificates are installed and not served",
            "zelvek certificate list"));
}

/// The names that are looked at: those of the command line, or of the jobs.
void CollectNames(const DoctorOptions& options, Panel& panel) {
    const auto most = static_cast<std::size_t>(options.most_names);
    std::set<std::string> seen;
    const auto take = [&](const std::string& name) {
        if (seen.size() >= most && !seen.contains(name)) panel.more_names = true;
        if (seen.size() < most && seen.insert(name).second) panel.names.push_back(name);
    };
    for (const std::string& name : options.names) take(names::Canonical(name, "name"));
    if (!options.names.empty() || !panel.runs) return;
    const auto ask = [](const std::map<std::string, std::string>& parameters) {
        return cli::Ask("zelvek.job.list", parameters);
    };
    const cli::Part part{options.most_names, {}};
    cli::ForEachEntry(ask, "id", part, [&](const vek_xml::Node& job) {
        if (job.Value("check_type") != "http") return;
        for (const std::string& name : str::Split(job.Value("aliases"), " ")) take(names::Canonical(name));
    });
}

std::string HostOf(const std::string& url) {
    std::string rest = url.substr(std::min(url.find("//") + 2, url.size()));
    return rest.substr(0, rest.find_first_of("/:"));
}

void LookAtDatabaseFile(const std::filesystem::path& file, Checks& checks) {
    checks.push_back(doctor::Disk("disk", file.parent_path()));
    checks.push_back(doctor::SecretFile("database", file));
    try {
        const std::string damage = DamageOf(file);
        checks.push_back(damage.empty() ? doctor::Fine("integrity", "the database is whole")
                                        : doctor::Wrong("integrity", damage, "restore a backup"));
    } catch (const Error& error) {
        checks.push_back(doctor::Wrong("integrity", error.what(), "see whether the path is right"));
    }
}

void LookAtDatabase(const ServeOptions& options, Checks& checks) try {
    const Place place(options.database);
    if (place.IsFile()) {
        LookAtDatabaseFile(place.File(), checks);
    } else {
        checks.push_back(doctor::Fine("database", place.Shown() + ": " + LookAt(place)));
    }
} catch (const Error& error) {
    checks.push_back(doctor::Wrong("database", error.what(), "see database in zelvek.conf(5)"));
}

void LookAtMachine(const ServeOptions& options, Checks& checks) {
    checks.push_back(doctor::Tools({"dig", "openssl"}));
    checks.push_back(doctor::WritableFolder("answers folder", options.answers));
    checks.push_back(doctor::WritableFolder("certificates folder", options.install.directory));
    checks.push_back(doctor::Disk("disk", options.install.directory));
    LookAtDatabase(options, checks);
    checks.push_back(doctor::Listening(80, "http-01 needs a web server at port 80"));
    checks.push_back(doctor::Listening(443, "sites need a web server at port 443"));
    Append(checks, doctor::Units({"zelvek.service", "zelvek-reload.path"}));
}

void LookAtZones(const ServeOptions& options, Checks& checks) try {
    const auto backend = dns::MakeBackend(options.dns);
    if (!backend) return;
    for (const std::string& zone : backend->Zones()) checks.push_back(doctor::Records(*backend, zone));
} catch (const Error&) {
    // What is wrong with the options is told of the configuration.
}

/// What the service itself would say of its options.
Check Configuration(const std::string& file, const ServeOptions& options) try {
    CheckOptions(options);
    return doctor::Fine("configuration", file);
} catch (const std::exception& error) {
    return doctor::Wrong("configuration", file + ": " + error.what(), "see zelvek.conf(5)");
}

void LookOutside(const ServeOptions& options, const Panel& panel, Checks& checks) {
    const auto known = authorities::All({options.plugin, options.authorities});
    for (const authorities::Authority& each : known)
        Append(checks, doctor::Authority(each.name, each.directory));
    if (!known.empty())
        Append(checks, doctor::Resolvers(options.public_resolvers, HostOf(known.front().directory)));
    LookAtZones(options, checks);
    const auto& notify = options.notify;
    if (!notify.administrator.empty() || !notify.addresses.empty()) {
        checks.push_back(doctor::Mail(notify.smtp, notify.sendmail));
    } else if (notify.command.empty()) {
        checks.push_back(
            doctor::Note("notices", "nobody is told of troubles", "notify-mail in zelvek.conf(5)"));
    }
    Append(checks, doctor::Answers(options.answers, panel.names, options.public_resolvers));
    if (panel.more_names)
        checks.push_back(doctor::Note("answers", "not all names were looked at", "--names N looks at more"));
}

const char* Word(Check::State state) {
    switch (state) {
        case Check::State::kFine: return "fine";
        case Check::State::kNote: return "note";
        case Check::State::kWrong: break;
    }
    return "wrong";
}

void Print(const Checks& checks, bool json) {
    if (!json) {
        std::vector<std::vector<std::string>> rows;
        for (const Check& each : checks)
            rows.push_back({Word(each.state), each.about, str::Append(each.said, each.help, ". To do: ")});
        std::cout << cli::OutputTable({"STATE", "CHECK", "FOUND"}, rows);
        return;
    }
    Json::Value list(Json::arrayValue);
    for (const Check& each : checks) {
        Json::Value entry;
        entry["state"] = Word(each.state);
        entry["check"] = each.about;
        entry["found"] = each.said;
        entry["help"] = each.help.empty() ? Json::Value() : Json::Value(each.help);
        list.append(entry);
    }
    cli::PrintJson(list);
}

int Told(const Checks& checks, bool json) {
    Print(checks, json);
    const bool wrong = std::any_of(checks.begin(), checks.end(),
                                   [](const Check& each) { return each.state == Check::State::kWrong; });
    return wrong ? kFailure : kSuccess;
}

/// For who may ask the service, but not read its options and files.
int ExamineFromOutside(bool json) {
    Checks checks;
    Panel panel;
    LookAtService(panel, checks);
    if (panel.runs) LookAtCertificates(checks);
    checks.push_back(doctor::Note("machine",
                                  "options, files, ports, tools and name servers were not looked at",
                                  "have root run the command, or the service's user"));
    return Told(checks, json);
}

int Examine(const DoctorOptions& chosen, const ServeOptions& options) {
    // What the service may do is what counts, not what root may.
    BecomeServiceUser(RunDirectory());
    Checks checks{Configuration(chosen.config, options)};
    Panel panel;
    LookAtService(panel, checks);
    if (panel.runs) LookAtCertificates(checks);
    CollectNames(chosen, panel);
    LookAtMachine(options, checks);
    LookOutside(options, panel, checks);
    return Told(checks, chosen.json);
}

}  // namespace

void AddDoctorCommand(Command& root) {
    const auto options = std::make_shared<DoctorOptions>();
    Command doctor =
        root.AddCommand("doctor", "Looks at all that certificates need, and says what to do", [options] {
            if (!IsServiceUser(RunDirectory())) return ExamineFromOutside(options->json);
            ServeOptions serve;
            const int status = ReadServeOptions(options->config, serve);
            return status == kSuccess ? Examine(*options, serve) : status;
        });
    cli::AddJsonFlag(doctor, options->json);
    doctor.AddOption("--config", options->config, "The service's file of options").NotEmpty();
    doctor.AddOption("--name", options->names,
                     "Looks at this name's web server, not at those of the jobs; repeatable");
    doctor.AddOption("--names", options->most_names, "At most so many names").Positive();
}

}  // namespace zelvek
