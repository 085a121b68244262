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
#include "zelvek/base/authority.h"
#include "zelvek/base/happening.h"
#include "zelvek/base/log.h"
#include "zelvek/store/job_lists.h"
#include "zelvek/store/jobs.h"

namespace zelvek {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kAfterFailure{1000};
constexpr milliseconds kLongestWait{3600'000};  // what poll(2) is given at most
// Between checks of runs whose end does not wake us.
constexpr milliseconds kBetweenChecks{1000};

std::string Name(int job) { return "job " + std::to_string(job); }

}  // namespace

Scheduler::Scheduler(Store& store, Settings settings)
    : store_(store),
      settings_(std::move(settings)),
      turns_(store, settings_.turns, FindProcess(::getpid()).value()),
      wakes_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    store_.TellOfDue([this](const std::string& due) { NoteDue(due); });
    thread_ = std::thread([this] { Loop(); });
}

Scheduler::~Scheduler() {
    {
        const std::lock_guard lock(signals_.mutex);
        signals_.end = true;
    }
    Wake();
    thread_.join();
    store_.TellOfDue({});
}

bool Scheduler::Ending() {
    const std::lock_guard lock(signals_.mutex);
    return signals_.end;
}

void Scheduler::Wake() const { [[maybe_unused]] const int failed = ::eventfd_write(wakes_.get(), 1); }

/// On the thread that has changed the store.
void Scheduler::NoteDue(const std::string& due) {
    const std::lock_guard lock(signals_.mutex);
    if (signals_.look || (!signals_.next.empty() && due >= signals_.next)) return;
    signals_.look = true;
    Wake();
}

void Scheduler::Change(Settings settings) {
    {
        const std::lock_guard lock(signals_.mutex);
        signals_.settings = std::move(settings);
    }
    Wake();
}

/// What waits may be started by the new ones.
void Scheduler::TakeSettings() {
    const std::lock_guard lock(signals_.mutex);
    if (!signals_.settings) return;
    settings_ = *std::exchange(signals_.settings, std::nullopt);
    turns_.Change(settings_.turns);
    signals_.look = true;
}

void Scheduler::Loop() {
    while (!Ending()) {
        TakeSettings();
        const bool freed = Reap();
        EndLateRuns();
        if (MayLook(freed)) TryStartDue();
        Moment until = next_look_;
        for (const auto& [job, run] : runs_) until = std::min(until, run.end_by);
        Wait(until);
    }
    EndRuns();
}

/// Whether there may be something to start, and a place for it.
bool Scheduler::MayLook(bool freed) {
    const Moment now = steady_clock::now();
    if (now >= next_look_) look_ = true;
    {
        const std::lock_guard lock(signals_.mutex);
        if (signals_.look) look_ = true;
        signals_.look = false;
    }
    if (runs_.size() >= settings_.runs_at_once) {
        next_look_ = std::max(next_look_, now + settings_.interval);
        return false;
    }
    return look_ || freed;
}

/// What fails now, the database being locked say, may succeed at the next look.
void Scheduler::TryStartDue() {
    try {
        StartDue();
    } catch (const std::exception& error) {
        Log(std::string("scheduler: ") + error.what());
        next_look_ = steady_clock::now() + kAfterFailure;
    }
}

void Scheduler::StartDue() {
    const Moment now = steady_clock::now();
    const bool look = look_ && (turns_.UsedUp() || now - last_look_ >= between_looks_);
    {
        // What changes from here on may not be seen below.
        const std::lock_guard lock(signals_.mutex);
        signals_.next.clear();
    }
    const auto under_way = [&](int job) { return runs_.contains(job); };
    const auto claimed = turns_.Claim(settings_.runs_at_once - runs_.size(), under_way, look);
    if (look) {
        look_ = false;
        last_look_ = now;
        between_looks_ = PauseAfterLook(std::chrono::ceil<milliseconds>(steady_clock::now() - now));
    }
    for (const int job : claimed) Start(job);
    PlanSleep();
}

/// Until the next time at which something is due, as far as it is known.
void Scheduler::PlanSleep() {
    const auto next = turns_.Next();
    milliseconds sleep = settings_.interval;
    if (next) {
        const std::chrono::seconds left{vek_date::DateTime(*next).SecondsSince(vek_date::DateTime())};
        sleep = std::min<milliseconds>(sleep, std::max(left, std::chrono::seconds{0}));
    }
    if (look_) sleep = std::min(sleep, between_looks_);
    next_look_ = steady_clock::now() + sleep;
    const std::lock_guard lock(signals_.mutex);
    signals_.next = next.value_or("");
}

/// Errors: Error.
Job Scheduler::Shown(int job) {
    Transaction transaction(store_);
    return jobs::FindShown(transaction, job);
}

void Scheduler::Start(int job) {
    try {
        const Moment end_by = steady_clock::now() + settings_.run_limit;
        const Job shown = Shown(job);
        PluginRun process(authorities::PluginOf(settings_.plugin, shown.authority), job, settings_.log_level);
        const std::string pid = std::to_string(process.pid());
        runs_.emplace(job, Run{std::move(process), end_by});
        Log(Happening::kRunBegan, {.job = job, .certname = shown.certname, .user = shown.user_name},
            Name(job) + ": run started, process " + pid);
    } catch (const std::exception& error) {
        Log(Name(job) + ": " + error.what());  // the next look frees the job
    }
}

void Scheduler::NoteEnd(int job, int status) {
    Circumstances circumstances{.job = job};
    try {
        const Job shown = Shown(job);
        circumstances.certname = shown.certname;
        circumstances.user = shown.user_name;
        circumstances.outcome = job_lists::Word(job_lists::KindOf(shown));
    } catch (const std::exception&) {  // somebody has removed the job meanwhile
        circumstances.outcome = "unknown";
    }
    Log(Happening::kRunEnded, circumstances, Name(job) + ": run ended with status " + std::to_string(status));
}

/// Lets go of the runs that have ended; says whether there was one.
bool Scheduler::Reap() {
    const std::size_t before = runs_.size();
    for (auto run = runs_.begin(); run != runs_.end();) {
        const auto status = run->second.process.Status();
        if (status) NoteEnd(run->first, *status);
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
        if (!runs_.empty()) Wait(end);
    }
}

/// Waits for the end of a run, a signal, or the time.
void Scheduler::Wait(Moment until) {
    std::vector<pollfd> fds{{wakes_.get(), POLLIN, 0}};
    for (const auto& [job, run] : runs_) {
        if (run.process.ending() < 0) until = std::min(until, steady_clock::now() + kBetweenChecks);
        fds.push_back({run.process.ending(), POLLIN, 0});
    }
    const auto left = std::chrono::ceil<milliseconds>(until - steady_clock::now());
    ::poll(fds.data(), fds.size(), static_cast<int>(std::clamp(left, milliseconds{0}, kLongestWait).count()));
    eventfd_t count = 0;
    ::eventfd_read(wakes_.get(), &count);
}

}  // namespace zelvek
