#include "zelvek/jobs/run_end.h"

#include <algorithm>

#include "zelvek/store/tallies.h"

namespace zelvek::run_end {

namespace {

int BoundOf(std::chrono::milliseconds duration) {
    const auto* bound = std::find_if(kBounds.begin(), kBounds.end() - 1,
                                     [&](int seconds) { return duration <= std::chrono::seconds(seconds); });
    return *bound;
}

}  // namespace

std::string ResultOf(const Job& job, Outcome outcome, bool verified_before) {
    if (job.verified) return verified_before ? "nothing_to_do" : "installed";
    if (job.failed) return "stopped";
    return outcome == Outcome::kOnItsWay ? "waiting" : "failed";
}

void Count(Transaction& transaction, const End& end) {
    tallies::CountRun(transaction, end.result, Word(end.outcome));
    tallies::CountDuration(transaction, {BoundOf(end.duration), 1, end.duration.count()});
}

void CountDeath(Transaction& transaction) {
    tallies::CountRun(transaction, "died", Word(Outcome::kUnreached));
}

}  // namespace zelvek::run_end
