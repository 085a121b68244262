#include "zelvek/scheduler.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include "vek/date.h"
#include "zelvek/service_log.h"

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

bool IsDue(const jobs::Job& job, const std::string& now, std::chrono::seconds retry) {
    if (job.verified || job.failed || job.processing) return false;
    // Date-times of this form compare as texts.
    if (job.next_attempt > job.last_run) return job.next_attempt <= now;
    if (job.last_run.empty()) return true;
    return vek_date::DateTime(job.last_run).AddSeconds(static_cast<int>(retry.count())).AsDateTime() <= now;
}

Scheduler::Scheduler(Services& services, Settings settings)
    : services_(services),
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
        try {
            Reap();
            if (steady_clock::now() >= next) {
                StartDue();
                next = steady_clock::now() + settings_.interval;
            }
        } catch (const std::exception& error) {
            Log(std::string("scheduler: ") + error.what());
            next = steady_clock::now() + settings_.interval;
        }
        Wait(std::chrono::ceil<milliseconds>(next - steady_clock::now()));
    }
    EndRuns();
}

void Scheduler::StartDue() {
    std::vector<jobs::Job> due;
    {
        Transaction transaction(services_.store);
        jobs::EndDeadRuns(transaction.database(), Now());
        for (auto& job : jobs::All(transaction.database())) {
            if (!IsDue(job, Now(), settings_.retry) || runs_.contains(job.id)) continue;
            if (runs_.size() + due.size() == kRunsAtOnce) break;
            // Nobody else may start it before the plug-in itself reads the record.
            jobs::Claim(transaction.database(), job.id, self_);
            due.push_back(std::move(job));
        }
        transaction.Commit();
    }
    for (const auto& job : due) Start(job);
}

void Scheduler::Start(const jobs::Job& job) {
    try {
        const auto [run, added] = runs_.emplace(job.id, PluginRun(settings_.plugin, job.id));
        Log(Name(job.id) + ": run started, process " + std::to_string(run->second.pid()));
    } catch (const std::exception& error) {
        Log(Name(job.id) + ": " + error.what());
        Release(job.id);
    }
}

void Scheduler::Reap() {
    for (auto run = runs_.begin(); run != runs_.end();) {
        const auto status = run->second.Status();
        if (!status) {
            ++run;
            continue;
        }
        const int job = run->first;
        Log(Name(job) + ": run ended with status " + std::to_string(*status));
        run = runs_.erase(run);
        Release(job);
    }
}

/// Ends the claim of a run that has not come as far as reading the record, or that died without writing it
/// back.
void Scheduler::Release(int id) {
    Transaction transaction(services_.store);
    for (auto& job : jobs::All(transaction.database())) {
        if (job.id != id || !job.processing || (job.reader != self_ && Alive(job.reader))) continue;
        job.processing = false;
        job.last_run = Now();
        jobs::Save(transaction.database(), job);
    }
    transaction.Commit();
}

void Scheduler::EndRuns() {
    for (const auto& [job, run] : runs_) run.Terminate();
    const auto end = steady_clock::now() + kEndLimit;
    while (!runs_.empty() && steady_clock::now() < end) {
        try {
            Reap();
        } catch (const std::exception& error) {
            Log(std::string("scheduler: ") + error.what());
        }
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
