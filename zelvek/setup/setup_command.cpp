#include "zelvek/setup/setup_command.h"

#include <json/json.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/base/service_user.h"
#include "zelvek/base/text.h"
#include "zelvek/base/tool.h"
#include "zelvek/certificates/install.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/job_view.h"
#include "zelvek/cli/json_output.h"
#include "zelvek/cli/steps.h"
#include "zelvek/service/serve_command.h"
#include "zelvek/setup/web_server.h"

namespace zelvek {

namespace {

constexpr int kMoreToDo = 3;  // exit status: a person, or time, has to do something first
constexpr std::chrono::milliseconds kLookPause{300};

struct SetupOptions {
    std::string config = "/etc/zelvek/zelvek.conf";
    std::filesystem::path etc = "/etc";
    std::string domain, user, web_server, authority;
    std::vector<std::string> aliases;
    std::chrono::seconds wait{300};
    bool make_site = false;
    bool ready = false;
    bool dry_run = false;
    bool json = false;

    /// Canonical, the main one first.
    std::vector<std::string> Names() const {
        std::vector<std::string> names{names::Canonical(domain)};
        for (const std::string& alias : aliases) names.push_back(names::Canonical(alias));
        return names;
    }
};

/// Tells what is done while it is done, or all at once as JSON.
class Teller {
public:
    explicit Teller(bool json) : json_(json) {}

    void Say(const std::string& text) const {
        if (!json_) std::cout << text << "\n" << std::flush;
    }

    void Tell(const setup::ConfigFile& file, bool dry_run) {
        const char* state = file.there ? "there" : dry_run ? "missing" : "written";
        Json::Value entry;
        entry["path"] = file.path.string();
        entry["state"] = state;
        report_["files"].append(entry);
        if (file.there) return Say(file.path.string() + " is there");
        const std::string deed = (dry_run ? "would write " : "writes ") + file.path.string();
        if (!file.target.empty()) return Say(deed + ", a link to " + file.target);
        std::string text = deed + ":";
        std::string rest = file.content;
        while (!rest.empty()) text += "\n    " + str::GetWord(rest, '\n');
        Say(text);
    }

    Json::Value& report() { return report_; }

    int End(int status, const std::string& outcome) {
        report_["outcome"] = outcome;
        if (json_) cli::PrintJson(report_);
        return status;
    }

private:
    bool json_;
    Json::Value report_{Json::objectValue};
};

void CheckNames(const SetupOptions& options) {
    names::CheckUser(options.user);
    names::CheckDomain(options.domain, false);
    for (const std::string& alias : options.aliases) names::CheckDomain(alias, false);
}

std::vector<setup::ConfigFile> Plan(const SetupOptions& options, const setup::WebServer& web,
                                    const ServeOptions& serve) {
    std::vector<setup::ConfigFile> files = setup::AnswerFiles(web, serve.answers);
    if (!options.make_site) return files;
    if (web.server != setup::Server::kNginx)
        throw Error(Code::kValue, "Apache needs no site for the answers: leave --make-site out");
    files.push_back(setup::AnswerSite(web, options.Names()));
    return files;
}

/// A domain that is the user's already stays so.
void AddDomain(const std::string& name, const std::string& user) {
    try {
        cli::Ask("zelvek.domain.add", {{"name", name}, {"user_name", user}});
    } catch (const Error& error) {
        if (error.code() != Code::kExists) throw;
        const auto answer = cli::Ask("zelvek.domain.list", {{"user_name", user}});
        const auto own = answer.xml().GetNodes("/doc/elem");
        const bool has = std::any_of(own.begin(), own.end(), [&](const vek_xml::Node& domain) {
            return names::Canonical(domain.Value("name")) == name;
        });
        if (!has) throw;
    }
}

void AddDomains(const std::vector<std::string>& names, const std::string& user) {
    for (const std::string& name : names) {
        if (name == names.front() || !names::ZoneContains(names.front(), name)) AddDomain(name, user);
    }
}

/// The user's job for this certificate; 0 where there is none.
int ExistingJob(const SetupOptions& options) {
    const auto jobs =
        cli::Ask("zelvek.job.attention", {{"name", options.domain}, {"user_name", options.user}});
    for (const auto& job : jobs.xml().GetNodes("/doc/elem")) {
        if (names::ComparedFolderIfAny(job.Value("certname")) == names::ComparedFolderIfAny(options.domain))
            return str::Int(job.Value("id"));
    }
    return 0;
}

/// A new job, or another try of the one that is there.
int StartJob(const SetupOptions& options, int existing, const Teller& teller) {
    if (existing != 0) {
        const std::string id = str::Str(existing);
        teller.Say("job " + id + " is there");
        const auto job = cli::AskForJob(existing);
        const bool goes_on = job.value("verified") == "on" || job.value("processing") == "on";
        if (!goes_on) cli::Ask("zelvek.job.retry", {{"elid", id}});
        return existing;
    }
    std::string aliases;
    for (const std::string& alias : options.aliases) str::inpl::Append(aliases, alias, " ");
    const auto answer = cli::Ask("zelvek.job.add", {{"domain", options.domain},
                                                    {"user_name", options.user},
                                                    {"authority", options.authority},
                                                    {"aliases", aliases}});
    teller.Say("job " + answer.value("id") + " added");
    return str::Int(answer.value("id"));
}

/// Shows what happens to the job until it has a certificate, a run has failed, or the time is over.
int Follow(int id, const SetupOptions& options, std::size_t shown, Teller& teller) {
    const auto end = std::chrono::steady_clock::now() + options.wait;
    for (;;) {
        const auto job = cli::AskForJob(id);
        const auto events = job.xml().GetNodes("/doc/event");
        for (; shown < events.size(); ++shown) teller.Say(cli::StepOfEvent(events[shown]));
        const bool verified = job.value("verified") == "on";
        const bool failed = job.value("failed") == "on" || str::Int(job.value("failures")) > 0;
        const bool over = std::chrono::steady_clock::now() >= end;
        if (!verified && !failed && !over) {
            std::this_thread::sleep_for(kLookPause);
            continue;
        }
        teller.report()["job"] = cli::JobJson(job);
        teller.Say("\n" + cli::JobSentence(job));
        const std::string findings = cli::JobFindings(job);
        if (!findings.empty()) teller.Say(findings);
        if (verified) return teller.End(kSuccess, "installed");
        if (failed) return teller.End(kFailure, "failed");
        teller.Say("It goes on by itself: \"zelvek job show " + str::Str(id) + "\" tells how far it is.");
        return teller.End(kMoreToDo, "waiting");
    }
}

/// The service's own way, so that what reloads after each renewal is tried now.
void ReloadWebServer(const ServeOptions& serve, const Teller& teller) {
    const std::string& command = serve.reload.command;
    if (command.empty()) {
        teller.Say("The service has no reload-command: reload the web server by hand, now and at renewals.");
        return;
    }
    teller.Say("reloads the web server: " + Printable(command));
    const ToolRun run = RunTool(command, "", serve.reload.limit);
    if (run.status == 0 && !run.timed_out) return;
    throw Error(Code::kIo, "the web server cannot be reloaded: " + LastLines(run.output) +
                               "; mend that, and run this command again");
}

/// The job, from a web server that serves its answers to its certificate.
int Issue(const SetupOptions& options, const ServeOptions& serve, bool scheduler, Teller& teller) {
    ReloadWebServer(serve, teller);
    const int before = ExistingJob(options);
    const std::size_t shown = before == 0 ? 0 : cli::EventCount(cli::AskForJob(before));
    const int id = StartJob(options, before, teller);
    if (scheduler) return Follow(id, options, shown, teller);
    teller.report()["job"] = cli::JobJson(cli::AskForJob(id));
    teller.Say("The service starts no run by itself (scheduler=off): \"zelvek job run " + str::Str(id) +
               "\"");
    return teller.End(kMoreToDo, "waiting");
}

/// What the service does: domains, a placeholder, and the job with its first run where its answers are
/// `served`.
int AskService(const SetupOptions& options, const ServeOptions& serve, bool served, Teller& teller) {
    const std::vector<std::string> names = options.Names();
    const bool scheduler = cli::Ask("zelvek.status", {}).value("scheduler") == "on";
    AddDomains(names, options.user);
    const auto made = cli::Ask("zelvek.certificate.placeholder",
                               {{"user_name", options.user}, {"certname", options.domain}});
    if (made.value("made") == "on")
        teller.Say("a placeholder stands in " + made.value("place") + " until the certificate is there");
    if (served) return Issue(options, serve, scheduler, teller);
    teller.Say(
        "No site of nginx serves the answers of " + names.front() +
        " yet: add the lines above, and run this command again (--ready where it does, --make-site for "
        "a site of the answers alone).");
    return teller.End(kMoreToDo, "site");
}

int SetUp(const SetupOptions& options, const ServeOptions& serve) {
    CheckNames(options);
    if (!options.dry_run)
        RequireAccess(options.etc, W_OK, "\"zelvek setup\", which adds to the web server's configuration,");
    const setup::WebServer web = setup::FindWebServer(options.etc, options.web_server);
    Teller teller(options.json);
    for (const setup::ConfigFile& file : Plan(options, web, serve)) {
        teller.Tell(file, options.dry_run);
        if (!options.dry_run) setup::Write(file);
    }
    const auto place = install::PlaceOf(serve.install, options.user, options.domain);
    const auto missing = options.make_site ? std::vector<std::string>{} : options.Names();
    const std::string lines = setup::LinesOfSite(web, missing, place);
    teller.report()["lines"] = lines;
    teller.report()["place"] = place.string();
    teller.Say("\n" + lines);
    // Looked at as root: the service's user may not read every site.
    const bool served = web.server == setup::Server::kApache || options.ready ||
                        setup::IncludesAnswers(web, options.Names().front());
    if (!options.dry_run) return AskService(options, serve, served, teller);
    teller.Say("Then the domain and the job would be added. Nothing was changed.");
    return teller.End(kSuccess, "dry run");
}

}  // namespace

void AddSetupCommand(Command& root) {
    const auto options = std::make_shared<SetupOptions>();
    Command setup =
        root.AddCommand("setup", "Takes a server with nginx or Apache to its first certificate", [options] {
            ServeOptions serve;
            const int status = ReadServeOptions(options->config, serve);
            return status == kSuccess ? SetUp(*options, serve) : status;
        });
    cli::AddJsonFlag(setup, options->json);
    setup.AddOption("--domain", options->domain, "Main domain name").Required();
    setup.AddOption("--user", options->user, "Owner of the certificate").Required();
    setup.AddOption("--alias", options->aliases, "A further name; repeatable");
    setup.AddOption("--webserver", options->web_server, "Which one, where both are there")
        .OneOf({"nginx", "apache"});
    setup.AddOption("--authority", options->authority, "Who issues it (\"zelvek authority list\")");
    setup.AddFlag("--make-site", options->make_site,
                  "Makes a site of nginx that serves the answers of these names alone");
    setup.AddFlag("--ready", options->ready, "The site includes the answers, wherever it is written");
    setup.AddOption("--wait", options->wait, "Seconds that the job is looked at");
    setup.AddFlag("--dry-run", options->dry_run, "Shows what would be written, and does nothing");
    setup.AddOption("--config", options->config, "The service's file of options").NotEmpty();
    setup.AddOption("--etc", options->etc, "Where the folders nginx or apache2 are").NotEmpty();
}

}  // namespace zelvek
