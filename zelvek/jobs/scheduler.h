#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <thread>

#include "zelvek/base/plugin_run.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/store.h"

namespace zelvek {

/// Whether a job's next run is due at `now`: at the time its last run has asked for, else `retry` after that
/// run's end; a new job's at once.
bool IsDue(const jobs::Job& job, const std::string& now, std::chrono::seconds retry);

/// Starts the plug-in for the jobs whose time has come: one process a job, a few at once.
class Scheduler {
public:
    struct Settings {
        std::filesystem::path plugin;
        std::chrono::milliseconds interval{5000};  // between looks at the jobs
        std::chrono::seconds retry{60};
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
    void EndLostClaims(SQLite::Database& database, const std::string& now);
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
