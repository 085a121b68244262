#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <thread>

#include "zelvek/base/plugin_run.h"
#include "zelvek/jobs/next_run.h"
#include "zelvek/store/store.h"

namespace zelvek {

/// Starts the plug-in for the jobs whose time has come: one process a job, a few at once.
class Scheduler {
public:
    struct Settings {
        std::filesystem::path plugin;
        std::chrono::milliseconds interval{5000};  // between looks at the jobs
        RetryPolicy policy;
    };

    static constexpr std::size_t kRunsAtOnce = 4;

    Scheduler(Store& store, Settings settings);

    /// Asks the runs under way to end and waits for them: they still write their records back, so the service
    /// has to answer meanwhile.
    ~Scheduler();
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

private:
    void Loop();
    void TryStartDue();
    void StartDue();
    void FreeLostJobs(Transaction& transaction, const std::string& now);
    void Start(int job);
    void Reap();
    void EndRuns();
    void Wait(std::chrono::milliseconds limit);
    bool Ending() const;

    Store& store_;
    Settings settings_;
    Process self_;
    std::map<int, PluginRun> runs_;  // by job
    int end_;                        // eventfd, readable when the loop is to end
    std::thread thread_;
};

}  // namespace zelvek
