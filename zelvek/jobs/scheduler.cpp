#include "zelvek/jobs/scheduler.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>
#include <vector>

#include "vek/date.h"
#include "zelvek/base/log.h"
#include "zelvek/store/jobs.h"

namespace zelvek {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// A run ends within seconds of the signal; this is for one that hangs.
constexpr std::chrono::seconds kEndLimit{60};
// Between looks at runs whose end does not wake us.
constexpr milliseconds kLongestWait{1000};

std::string Now() { return vek_date::DateTime().AsDateTime(); }

std::string Name(int job) { return "job " + std::to_string(job); }

}  // namespace

Scheduler::Scheduler(Store& store, Settings settings)
    : store_(store),
      settings_(std::move(settings)),
      self_(FindProcess(::getpid()).value()),
      end_(::eventfd(0, EFD_CLOEXEC)),
      thread_([this] { Loop(); }) {}

Scheduler::~Scheduler() {
    [[maybe_unused]] const int failed = ::eventfd_write(end_, 1);
    thread_.join();
    ::close(end_);
}

bool Scheduler::Ending() const {
    pollfd fd{end_, POLLIN, 0};
    return ::poll(&fd, 1, 0) > 0;
}

void Scheduler::Loop() {
    auto next = steady_clock::now();
    while (!Ending()) {
        const bool look = steady_clock::now() >= next;
        Reap();
        if (look) TryStartDue();
        if (look) next = steady_clock::now() + settings_.interval;
        Wait(std::chrono::ceil<milliseconds>(next - steady_clock::now()));
    }
    EndRuns();
}

/// What fails now, the database being locked say, may succeed at the next look.
void Scheduler::TryStartDue() {
    try {
        StartDue();
    } catch (const std::exception& error) {
        Log(std::string("scheduler: ") + error.what());
    }
}

void Scheduler::StartDue() {
    std::vector<int> due;
    {
        const std::string now = Now();
        Transaction transaction(store_);
        FreeLostJobs(transaction, now);
        // A run that has written its record back may still be on its way out: its job can be due already.
        for (const int job : jobs::Due(transaction, now, static_cast<int>(kRunsAtOnce + runs_.size()))) {
            if (runs_.size() + due.size() == kRunsAtOnce) break;
            if (runs_.contains(job)) continue;
            // Nobody else may start it before the plug-in itself reads the record.
            jobs::Claim(transaction, job, self_);
            due.push_back(job);
        }
        transaction.Commit();
    }
    for (const int job : due) Start(job);
}

/// Frees the jobs of dead runs, and of those that never came as far as reading the record.
void Scheduler::FreeLostJobs(Transaction& transaction, const std::string& now) {
    FreeJobsOfTheDead(transaction, now, settings_.policy);
    for (const Job& job : jobs::Running(transaction)) {
        if (job.holder == self_ && !runs_.contains(job.id)) FreeJob(transaction, job, now, settings_.policy);
    }
}

void Scheduler::Start(int job) {
    try {
        const auto [run, added] = runs_.emplace(job, PluginRun(settings_.plugin, job));
        Log(Name(job) + ": run started, process " + std::to_string(run->second.pid()));
    } catch (const std::exception& error) {
        Log(Name(job) + ": " + error.what());  // the next look frees the job
    }
}

void Scheduler::Reap() {
    for (auto run = runs_.begin(); run != runs_.end();) {
        const auto status = run->second.Status();
        if (status) Log(Name(run->first) + ": run ended with status " + std::to_string(*status));
        run = status ? runs_.erase(run) : std::next(run);
    }
}

void Scheduler::EndRuns() {
    for (const auto& [job, run] : runs_) run.Terminate();
    const auto end = steady_clock::now() + kEndLimit;
    while (!runs_.empty() && steady_clock::now() < end) {
        Reap();
        if (!runs_.empty()) Wait(std::chrono::ceil<milliseconds>(end - steady_clock::now()));
    }
    for (const auto& [job, run] : runs_) Log(Name(job) + ": the run does not end, it is killed");
    runs_.clear();
}

/// Waits for the end of a run, of the scheduler (unless that has come), or of the time.
void Scheduler::Wait(milliseconds limit) {
    std::vector<pollfd> fds;
    if (!Ending()) fds.push_back({end_, POLLIN, 0});
    for (const auto& [job, run] : runs_) fds.push_back({run.ending(), POLLIN, 0});
    ::poll(fds.data(), fds.size(),
           static_cast<int>(std::clamp(limit, milliseconds{0}, kLongestWait).count()));
}

}  // namespace zelvek
