#include "zelvek/jobs/scheduler.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "vek/date.h"
#include "zelvek/base/log.h"
#include "zelvek/jobs/renewal.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/runs.h"

namespace zelvek {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Jobs that one look finds at most: it costs what is due, so with many due ones it is not done for each free
// slot.
constexpr int kCandidates = 64;
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
    Moment look;  // the next one; the first is at once
    while (!Ending()) {
        const bool freed = Reap();
        const bool time = steady_clock::now() >= look;
        if (time) look = steady_clock::now() + settings_.interval;
        if (time || freed) TryStartDue(time);
        EndLateRuns();
        Wait(std::chrono::ceil<milliseconds>(NextMoment(look) - steady_clock::now()));
    }
    EndRuns();
}

/// When something is to be done, although nothing happens.
Scheduler::Moment Scheduler::NextMoment(Moment look) const {
    for (const auto& [job, run] : runs_) look = std::min(look, run.end_by);
    return look;
}

/// What fails now, the database being locked say, may succeed at the next look.
void Scheduler::TryStartDue(bool look) {
    try {
        StartDue(look);
    } catch (const std::exception& error) {
        Log(std::string("scheduler: ") + error.what());
    }
}

/// Fills the free slots with what was found due, after a new look where that is wanted or nothing is left.
void Scheduler::StartDue(bool look) {
    std::vector<int> claimed;
    {
        const std::string now = Now();
        Transaction transaction(store_);
        FreeLostJobs(transaction, now);
        if (look) MendTimes(transaction, now, settings_.policy);
        if (look) StartDueAnew(transaction, now);
        if (runs_.size() < kRunsAtOnce && (look || candidates_.empty())) {
            const auto due = runs::Due(transaction, now, kCandidates);
            candidates_.assign(due.begin(), due.end());
        }
        while (runs_.size() + claimed.size() < kRunsAtOnce && !candidates_.empty()) {
            const int job = candidates_.front();
            candidates_.pop_front();
            // A run that has written its record back may still be on its way out: its job can be due already.
            // Nobody else may start a job before its plug-in itself reads the record.
            if (!runs_.contains(job) && runs::ClaimIfDue(transaction, job, self_, now))
                claimed.push_back(job);
        }
        transaction.Commit();
    }
    for (const int job : claimed) Start(job);
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
        const Moment end_by = steady_clock::now() + settings_.run_limit;
        const auto [run, added] = runs_.emplace(job, Run{PluginRun(settings_.plugin, job), end_by});
        Log(Name(job) + ": run started, process " + std::to_string(run->second.process.pid()));
    } catch (const std::exception& error) {
        Log(Name(job) + ": " + error.what());  // the next look frees the job
    }
}

/// Lets go of the runs that have ended; says whether there was one.
bool Scheduler::Reap() {
    const std::size_t before = runs_.size();
    for (auto run = runs_.begin(); run != runs_.end();) {
        const auto status = run->second.process.Status();
        if (status) Log(Name(run->first) + ": run ended with status " + std::to_string(*status));
        run = status ? runs_.erase(run) : std::next(run);
    }
    return runs_.size() < before;
}

/// Asks runs that take too long to end, and kills those that do not.
void Scheduler::EndLateRuns() {
    const Moment now = steady_clock::now();
    for (auto run = runs_.begin(); run != runs_.end();) {
        if (now < run->second.end_by) {
            ++run;
        } else if (run->second.asked_to_end) {
            Log(Name(run->first) + ": the run does not end, it is killed");
            run = runs_.erase(run);
        } else {
            Log(Name(run->first) + ": the run takes too long, it is asked to end");
            run->second.process.Terminate();
            run->second.asked_to_end = true;
            run->second.end_by = now + settings_.kill_after;
            ++run;
        }
    }
}

void Scheduler::EndRuns() {
    const Moment end = steady_clock::now() + settings_.kill_after;
    for (auto& [job, run] : runs_) {
        run.process.Terminate();
        run.asked_to_end = true;
        run.end_by = end;
    }
    while (!runs_.empty()) {
        Reap();
        EndLateRuns();
        if (!runs_.empty()) Wait(std::chrono::ceil<milliseconds>(end - steady_clock::now()));
    }
}

/// Waits for the end of a run, of the scheduler (unless that has come), or of the time.
void Scheduler::Wait(milliseconds limit) {
    std::vector<pollfd> fds;
    if (!Ending()) fds.push_back({end_, POLLIN, 0});
    for (const auto& [job, run] : runs_) fds.push_back({run.process.ending(), POLLIN, 0});
    ::poll(fds.data(), fds.size(),
           static_cast<int>(std::clamp(limit, milliseconds{0}, kLongestWait).count()));
}

}  // namespace zelvek
