#include "zelvek/cli/job_run.h"

#include <json/json.h>
#include <poll.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>

#include "vek/log.h"
#include "vek/str.h"
#include "zelvek/base/authority.h"
#include "zelvek/base/error.h"
#include "zelvek/base/plugin_run.h"
#include "zelvek/base/run_directory.h"
#include "zelvek/base/service_user.h"
#include "zelvek/base/text.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/job_view.h"
#include "zelvek/cli/json_output.h"
#include "zelvek/cli/log_follower.h"
#include "zelvek/cli/steps.h"
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
    std::filesystem::path plugin;  // empty: that of the job's authority
    bool json = false;
    bool quiet = false;
    bool verbose = false;
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

/// Shows what a run does while it does it. The log may hold texts from outside that would control the
/// terminal.
class Progress {
public:
    explicit Progress(const RunOptions& options)
        : silent_(options.json || options.quiet), raw_(options.verbose) {}

    /// `lines` are the log's news.
    void Show(const std::string& lines) {
        if (silent_) return;
        std::string rest = lines;
        while (!rest.empty()) ShowLine(str::GetWord(rest, '\n'));
        std::cout << std::flush;
    }

    /// Whether any step was shown: a log that cannot be read tells of none.
    bool shown() const { return shown_; }

private:
    void ShowLine(const std::string& line) {
        const std::string text = raw_ ? WithoutControls(line, ' ') : StepOfLine(line);
        if (!text.empty()) std::cout << text << "\n";
        shown_ = shown_ || !text.empty();
    }

    bool silent_;
    bool raw_;
    bool shown_ = false;
};

/// The first time the run is asked to end, in order and with its record written back. Whoever asks again does
/// not want to wait for that: the run is killed when its object is destroyed.
void HandOnRequest(const PluginRun& run, int times) {
    if (times > 1) throw Error(Code::kBusy, "the run did not end at once and is killed");
    run.Terminate();
}

/// Waits for the run's end; returns its exit status. Errors: Error where it is to be killed.
int Follow(const RunOptions& options, LogFollower log, Progress& progress) {
    const SignalsToRun signals;
    PluginRun run(options.plugin, options.id, vek_log::kTrace);  // the steps that are shown are its trace
    for (int asked = 0;;) {
        const auto status = run.Status();
        progress.Show(log.Next(run.pid()));
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

/// What the run has told the service: all of it, or, where its steps were shown, what failed.
void PrintEvents(const vek_client::Result& shown, std::size_t events_before, bool failed_alone) {
    const auto events = shown.xml().GetNodes("/doc/event");
    for (std::size_t i = events_before; i < events.size(); ++i) {
        if (!failed_alone || events[i].Value("state") == "failed")
            std::cout << StepOfEvent(events[i]) << "\n";
    }
}

void PrintOutcome(const vek_xml::Node& job, const Outcome& outcome, int exit_status) {
    std::cout << "\n"
              << OutputTable({"JOB", job.Value("id")}, {{"certificate", job.Value("certname")},
                                                        {"outcome", outcome.text},
                                                        {"state", StateOf(job)},
                                                        {"attempts", job.Value("attempt_count")},
                                                        {"exit status", std::to_string(exit_status)}});
}

/// A run is a process of the service's user, which has the account's key.
void RequireRunner(int id) {
    if (IsServiceUser(RunDirectory())) return;
    throw Error(Code::kDenied,
                "\"zelvek job run\" needs root or the service's own user; \"zelvek job retry " +
                    str::Str(id) + "\" has the service run the job now");
}

int Run(RunOptions options) {
    RequireRunner(options.id);
    const auto before = AskForJob(options.id);
    if (options.plugin.empty())
        options.plugin = authorities::PluginOf(PluginBesideProgram(), before.value("authority"));
    const bool verified_before = before.value("verified") == "on";
    // As long as this process has the job the service starts no run for it.
    Ask("zelvek.job.claim", {{"elid", str::Str(options.id)}});
    Progress progress(options);
    const int exit_status = Follow(options, LogFollower(LogFile(), LogFollower::EndOf(LogFile())), progress);

    const auto after = AskForJob(options.id);
    const auto job = after.xml().GetNode("/doc");
    const Outcome outcome = Judge(exit_status, verified_before, job);
    if (!options.json) {
        if (options.verbose) {
            std::cout << EventTable(after, EventCount(before));
        } else {
            PrintEvents(after, EventCount(before), progress.shown());
        }
        PrintOutcome(job, outcome, exit_status);
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
    run.AddFlag("--verbose", options->verbose, "The log's lines as they are, and the events as a table");
    run.AddOption("--plugin", options->plugin, "The ACME plug-in; without it, that of the job's authority");
}

}  // namespace zelvek::cli
