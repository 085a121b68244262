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
#include "zelvek/base/error.h"
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

struct RunOptions {
    int id = 0;
    std::filesystem::path plugin = PluginBesideProgram();
    bool json = false;
    bool quiet = false;
};

std::atomic<int> end_asked{0};  // how often

/// As long as this lives, Ctrl-C and SIGTERM ask for the end of the run, and do not end this process.
class SignalsToRun {
public:
    SignalsToRun() {
        Handle([](int) { ++end_asked; });
    }
    ~SignalsToRun() { Handle(SIG_DFL); }
    SignalsToRun(const SignalsToRun&) = delete;
    SignalsToRun& operator=(const SignalsToRun&) = delete;

private:
    static void Handle(void (*handler)(int)) {
        struct sigaction action {};
        action.sa_handler = handler;
        ::sigaction(SIGINT, &action, nullptr);
        ::sigaction(SIGTERM, &action, nullptr);
    }
};

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

/// The first time the run is asked to end, in order and with its record written back. Whoever asks again does
/// not want to wait for that: the run is killed when its object is destroyed.
void HandOnRequest(const PluginRun& run, int times) {
    if (times > 1) throw Error(Code::kBusy, "the run did not end at once and is killed");
    run.Terminate();
}

/// Waits for the run's end; returns its exit status. Errors: Error where it is to be killed.
int Follow(const RunOptions& options, LogFollower log) {
    const SignalsToRun signals;
    PluginRun run(options.plugin, options.id);
    const bool silent = options.json || options.quiet;
    for (int asked = 0;;) {
        const auto status = run.Status();
        if (!silent) Show(log.Next(run.pid()));
        if (status) return *status;
        if (asked < end_asked) HandOnRequest(run, ++asked);
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
    if (job.Value("failed") == "on")
        return {kFailure, "failed", "the job is stopped, and begins anew in about a day"};
    if (job.Value("processing") == "on") return {kFailure, "failed", "the run has not written the job back"};
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

int Run(const RunOptions& options) {
    const auto before = AskForJob(options.id);
    const bool verified_before = before.value("verified") == "on";
    // As long as this process has the job the service starts no run for it.
    Ask("zelvek.job.claim", {{"elid", str::Str(options.id)}});
    const int exit_status = Follow(options, LogFollower(LogFile(), LogFollower::EndOf(LogFile())));

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
    Command run =
        noun.AddCommand("run", "Runs a job now; Ctrl-C has the run end in order, a second one kills it",
                        [options] { return Run(*options); });
    AddJsonFlag(run, options->json);
    run.AddOption("ID", options->id, "The job's number").Required();
    run.AddFlag("--quiet", options->quiet, "No progress");
    run.AddOption("--plugin", options->plugin, "The ACME plug-in");
}

}  // namespace zelvek::cli
