#include "zelvek/jobs/turns.h"

#include <algorithm>

#include "vek/date.h"
#include "zelvek/base/error.h"
#include "zelvek/base/log.h"
#include "zelvek/jobs/registration.h"
#include "zelvek/jobs/renewal.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/runs.h"

namespace zelvek {

namespace {

// Jobs that one look finds at most: it costs what is due, however many it finds, so each start bears its
// share.
constexpr int kCandidates = 512;

using std::chrono::milliseconds;

constexpr milliseconds kBetweenLooks{1000};
constexpr milliseconds kLongestBetweenLooks{60'000};
constexpr int kShareOfTime = 20;  // that looks take at most: a twentieth

std::string Now() { return vek_date::DateTime().AsDateTime(); }

std::optional<Job> FindIfAny(Transaction& transaction, int id) try {
    return jobs::FindShown(transaction, id);
} catch (const Error& error) {
    if (error.code() != Code::kMissed) throw;
    return std::nullopt;
}

bool IsDue(const Job& job, const std::string& now) {
    return !job.verified && !job.failed && !job.processing && !job.paused && job.due <= now;
}

}  // namespace

milliseconds PauseAfterLook(milliseconds took) {
    return std::clamp(kShareOfTime * took, kBetweenLooks, kLongestBetweenLooks);
}

Turns::Turns(Store& store, Settings settings, Process self)
    : store_(store), settings_(settings), self_(self) {}

std::vector<int> Turns::Claim(std::size_t slots, const UnderWay& under_way, bool look) {
    const std::string now = Now();
    std::vector<int> claimed;
    Transaction transaction(store_);
    FreeLostJobs(transaction, under_way, now);
    bool looked = look || candidates_.empty();
    if (looked) LookAround(transaction, now);
    while (claimed.size() < slots) {
        if (candidates_.empty()) {
            if (looked) break;
            // There may be more than the last look has taken, and nothing else would tell of it.
            looked = true;
            LookAround(transaction, now);
            continue;
        }
        const int job = candidates_.front();
        candidates_.pop_front();
        // A run that has written its record back may still be on its way out: its job can be due already.
        // Nobody else may start a job before its plug-in itself reads the record.
        if (!under_way(job) && ClaimOne(transaction, job, now)) claimed.push_back(job);
    }
    transaction.Commit();
    return claimed;
}

std::optional<std::string> Turns::Next() {
    Transaction transaction(store_);
    const std::string next = runs::NextDue(transaction, Now());
    if (next.empty()) return std::nullopt;
    return next;
}

void Turns::LookAround(Transaction& transaction, const std::string& now) {
    MendTimes(transaction, now, settings_.policy);
    StartDueAnew(transaction, now);
    const auto due = runs::Due(transaction, now, kCandidates);
    candidates_.assign(due.begin(), due.end());
}

/// Frees the jobs of dead runs, and of those that never came as far as reading the record.
void Turns::FreeLostJobs(Transaction& transaction, const UnderWay& under_way, const std::string& now) {
    FreeJobsOfTheDead(transaction, now, settings_.policy);
    for (const Job& job : jobs::Running(transaction)) {
        if (job.holder == self_ && !under_way(job.id)) FreeJob(transaction, job, now, settings_.policy);
    }
}

bool Turns::ClaimOne(Transaction& transaction, int id, const std::string& now) {
    const auto job = FindIfAny(transaction, id);
    if (!job || !IsDue(*job, now)) return false;  // changed since the last look
    if (MustWait(transaction, *job, now) || !runs::ClaimIfDue(transaction, id, self_, now)) return false;
    NoteRun(transaction, *job, now);
    return true;
}

bool Turns::MustWait(Transaction& transaction, const Job& job, const std::string& now) {
    if (RegistrationUnderWay(transaction, job)) return true;
    const auto hold = HeldBack(transaction, job, settings_.limits, now);
    if (!hold) return false;
    Log("job " + std::to_string(job.id) + " waits until " + hold->until + ": " + hold->reason);
    runs::Postpone(transaction, job.id, hold->until, hold->reason);
    return true;
}

}  // namespace zelvek
