#pragma once

#include <chrono>
#include <deque>
#include <filesystem>
#include <map>
#include <string>
#include <thread>

#include "zelvek/base/plugin_run.h"
#include "zelvek/jobs/next_run.h"
#include "zelvek/store/store.h"

namespace zelvek {

/// Starts the plug-in for the jobs whose time has come: one process a job, a few at once, in turns between
/// users. A run that takes too long is asked to end, then killed.
class Scheduler {
public:
    struct Settings {
        std::filesystem::path plugin;
        std::chrono::milliseconds interval{5000};  // between looks at the jobs, while no run ends
        RetryPolicy policy;
        std::chrono::seconds run_limit{3600};  // what a run may take
        std::chrono::seconds kill_after{60};   // what it may take to end when it is asked to
    };

    static constexpr std::size_t kRunsAtOnce = 4;

    Scheduler(Store& store, Settings settings);

    /// Asks the runs under way to end and waits for them: they still write their records back, so the service
    /// has to answer meanwhile.
    ~Scheduler();
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

private:
    using Moment = std::chrono::steady_clock::time_point;

    struct Run {
        PluginRun process;
        Moment end_by;
        bool asked_to_end = false;
    };

    void Loop();
    void TryStartDue(bool look);
    void StartDue(bool look);
    void FreeLostJobs(Transaction& transaction, const std::string& now);
    void Start(int job);
    bool Reap();
    void EndLateRuns();
    void EndRuns();
    Moment NextMoment(Moment look) const;
    void Wait(std::chrono::milliseconds limit);
    bool Ending() const;

    Store& store_;
    Settings settings_;
    Process self_;
    std::map<int, Run> runs_;     // by job
    std::deque<int> candidates_;  // found due at the last look, not tried yet
    int end_;                     // eventfd, readable when the loop is to end
    std::thread thread_;
};

}  // namespace zelvek
