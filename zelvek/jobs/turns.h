#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "zelvek/base/process.h"
#include "zelvek/jobs/limits.h"
#include "zelvek/jobs/next_run.h"
#include "zelvek/store/store.h"

namespace zelvek {

/// How long the next look at all due jobs is put off after one that took so long. The store is nobody else's
/// meanwhile, and what a look costs grows with the due jobs: with tens of thousands it would be looked at all
/// the time otherwise.
std::chrono::milliseconds PauseAfterLook(std::chrono::milliseconds took);

/// Which jobs are run next. Starts no process itself.
class Turns {
public:
    struct Settings {
        RetryPolicy policy;
        Limits limits;
    };

    /// Says whether a run of this job is still under way in this process.
    using UnderWay = std::function<bool(int job)>;

    /// `self` is who claims the jobs.
    Turns(Store& store, Settings settings, Process self);

    void Change(Settings settings) { settings_ = settings; }

    /// Claims at most `slots` jobs that are due, in turns between users, and returns them. Before, jobs of
    /// dead runs are freed, those whose certificates end or whose pause is over begin anew, and times that a
    /// wrong clock has left are mended. Work that only a look at all due jobs can do is done where `look`
    /// says so, or where what the last look has found is used up. Errors: Error.
    std::vector<int> Claim(std::size_t slots, const UnderWay& under_way, bool look);

    /// Whether the next claim has to look at all due jobs anyway.
    bool UsedUp() const { return candidates_.empty(); }

    /// The earliest time, later than now, at which there is something to claim; nothing where nobody knows of
    /// one.
    std::optional<std::string> Next();

private:
    void LookAround(Transaction& transaction, const std::string& now);
    void FreeLostJobs(Transaction& transaction, const UnderWay& under_way, const std::string& now);
    bool ClaimOne(Transaction& transaction, int id, const std::string& now);
    bool MustWait(Transaction& transaction, const Job& job, const std::string& now);

    Store& store_;
    Settings settings_;
    Process self_;
    std::deque<int> candidates_;  // found due at the last look, not tried yet
};

}  // namespace zelvek
