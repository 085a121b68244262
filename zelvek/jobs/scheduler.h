#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "vek/log.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/base/job.h"
#include "zelvek/base/plugin_run.h"
#include "zelvek/jobs/turns.h"
#include "zelvek/store/store.h"

namespace zelvek {

/// Starts the plug-in for the jobs whose time has come: one process a job, some at once, in turns between
/// users. It sleeps until the next time has come, a run ends, or a change of the store brings a time that is
/// earlier. A run that takes too long is asked to end, then killed.
class Scheduler {
public:
    struct Settings {
        std::filesystem::path plugin;  // the first authority's
        // The longest sleep: what no process tells, such as a clock that was set, is noticed then.
        std::chrono::milliseconds interval{60'000};
        std::size_t runs_at_once = 1;  // 0: none is started
        Turns::Settings turns;
        std::chrono::seconds run_limit{3600};  // what a run may take
        std::chrono::seconds kill_after{60};   // what it may take to end when it is asked to
        int log_level = vek_log::kFunction;    // of the runs' log
    };

    Scheduler(Store& store, Settings settings);

    /// Asks the runs under way to end and waits for them: they still write their records back, so the service
    /// has to answer meanwhile.
    ~Scheduler();

    /// Other settings for what is started from now on: runs under way go on by those with which they began.
    /// Safe from any thread.
    void Change(Settings settings);
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

private:
    using Moment = std::chrono::steady_clock::time_point;

    struct Run {
        PluginRun process;
        Moment end_by;
        bool asked_to_end = false;
    };

    /// What other threads tell the loop.
    struct Signals {
        std::mutex mutex;
        std::string next;  // the time for which the loop sleeps; empty: it wants to be told of any
        bool look = true;  // something is due earlier than the loop knows
        bool end = false;
        std::optional<Settings> settings;  // not taken over yet
    };

    void Loop();
    void TakeSettings();
    bool MayLook(bool freed);
    void TryStartDue();
    void StartDue();
    void PlanSleep();
    Job Shown(int job);
    void Start(int job);
    void NoteEnd(int job, int status);
    bool Reap();
    void EndLateRuns();
    void EndRuns();
    void NoteDue(const std::string& due);
    void Wake() const;
    void Wait(Moment until);
    bool Ending();

    Store& store_;
    Settings settings_;
    Turns turns_;
    std::map<int, Run> runs_;  // by job
    Signals signals_;
    bool look_ = true;  // the next start of jobs begins with a look at all that is due
    Moment last_look_;
    std::chrono::milliseconds between_looks_ = PauseAfterLook({});
    Moment next_look_;
    Descriptor wakes_;  // eventfd: readable when there is a signal
    std::thread thread_;
};

}  // namespace zelvek
