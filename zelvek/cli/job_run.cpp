#include "zelvek/cli/job_run.h"

#include <json/json.h>
#include <poll.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>

#include "vek/str.h"
#include "zelvek/base/plugin_run.h"
#include "zelvek/base/text.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/job_view.h"
#include "zelvek/cli/json_output.h"
#include "zelvek/cli/log_follower.h"
#include "zelvek/cli/table.h"

namespace zelvek::cli {

namespace {

/// Exit statuses beside those that every command has.
enum RunStatus : int {
    kWaiting = 3,      // the run has ended, and a later one goes on
    kNothingToDo = 4,  // the job's certificate is there already
};

constexpr int kLookMilliseconds = 100;  // between looks at the log

std::atomic<bool> end_asked{false};

/// From now on Ctrl-C and SIGTERM ask for the end of the run; this process ends after it.
void PassSignalsOn() {
    struct sigaction action {};
    action.sa_handler = [](int) { end_asked = true; };
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

std::filesystem::path LogFile() {
    const char* directory = std::getenv("VEK_LOG_DIR");
    const bool set = directory != nullptr && *directory != '\0';
    return std::filesystem::path(set ? directory : "/var/log/vek") / "ambrin.log";
}

/// Shows lines of the log, which may hold texts from outside that would control the terminal.
void Show(const std::string& lines) {
    std::string rest = lines;
    while (!rest.empty()) std::cout << WithoutControls(str::GetWord(rest, '\n'), ' ') << "\n";
    std::cout << std::flush;
}

/// Waits for the run's end; returns its exit status.
int Follow(PluginRun& run, LogFollower log, bool silent) {
    bool asked = false;
    for (;;) {
        const auto status = run.Status();
        if (!silent) Show(log.Next(run.pid()));
        if (status) return *status;
        if (end_asked && !asked) run.Terminate();
        asked = end_asked;
        pollfd ending{run.ending(), POLLIN, 0};
        ::poll(&ending, 1, kLookMilliseconds);
    }
}

struct Outcome {
    int status;
    std::string word;
    std::string text;
};

Outcome Judge(int exit_status, bool verified_before, const vek_xml::Node& job) {
    if (exit_status != 0) {
        return {kFailure, "failed", "the run failed (exit status " + std::to_string(exit_status) + ")"};
    }
    if (verified_before)
        return {kNothingToDo, "nothing", "nothing to do: the certificate is installed already"};
    if (job.Value("verified") == "on") return {kSuccess, "installed", "the certificate is installed"};
    if (job.Value("failed") == "on") return {kFailure, "failed", "the job has failed for good"};
    const std::string next = job.Value("next_attempt");
    return {kWaiting, "waiting", "waiting" + (next.empty() ? "" : ", next attempt " + next + " UTC")};
}

void Print(const vek_client::Result& shown, std::size_t events_before, const Outcome& outcome,
           int exit_status) {
    const auto job = shown.xml().GetNode("/doc");
    std::cout << EventTable(shown, events_before) << "\n"
              << Table({"JOB", job.Value("id")}, {{"certificate", job.Value("certname")},
                                                  {"outcome", outcome.text},
                                                  {"state", StateOf(job)},
                                                  {"attempts", job.Value("attempt_count")},
                                                  {"exit status", std::to_string(exit_status)}});
}

struct RunOptions {
    int id = 0;
    std::filesystem::path plugin = PluginBesideProgram();
    bool json = false;
    bool quiet = false;
};

int Run(const RunOptions& options) {
    const auto before = AskForJob(options.id);
    const bool verified_before = before.value("verified") == "on";
    // As long as this process has the job the service starts no run for it.
    Ask("zelvek.job.claim", {{"elid", str::Str(options.id)}});
    PassSignalsOn();
    LogFollower log(LogFile(), LogFollower::EndOf(LogFile()));
    PluginRun run(options.plugin, options.id);
    const int exit_status = Follow(run, std::move(log), options.json || options.quiet);

    const auto after = AskForJob(options.id);
    const Outcome outcome = Judge(exit_status, verified_before, after.xml().GetNode("/doc"));
    if (!options.json) {
        Print(after, EventCount(before), outcome, exit_status);
        return outcome.status;
    }
    Json::Value json = JobJson(after);
    json["outcome"] = outcome.word;
    json["exit_status"] = exit_status;
    PrintJson(json);
    return outcome.status;
}

}  // namespace

void AddJobRunCommand(Command& noun) {
    const auto options = std::make_shared<RunOptions>();
    Command run = noun.AddCommand("run", "Runs a job now", [options] { return Run(*options); });
    AddJsonFlag(run, options->json);
    run.AddOption("ID", options->id, "The job's number").Required();
    run.AddFlag("--quiet", options->quiet, "No progress");
    run.AddOption("--plugin", options->plugin, "The ACME plug-in");
}

}  // namespace zelvek::cli
