#include "zelvek/jobs/run_end.h"

#include <algorithm>

#include "vek/date.h"
#include "zelvek/store/tallies.h"

namespace zelvek::run_end {

namespace {

int BoundOf(std::chrono::milliseconds duration) {
    const auto* bound = std::find_if(kBounds.begin(), kBounds.end() - 1,
                                     [&](int seconds) { return duration <= std::chrono::seconds(seconds); });
    return *bound;
}

std::string Today() {
    constexpr std::size_t kDateLength = sizeof("YYYY-MM-DD") - 1;
    return vek_date::DateTime().AsDateTime().substr(0, kDateLength);
}

}  // namespace

std::string ResultOf(const Job& job, Outcome outcome, bool verified_before) {
    if (job.verified) return verified_before ? "nothing_to_do" : "installed";
    if (job.failed) return "stopped";
    return outcome == Outcome::kOnItsWay ? "waiting" : "failed";
}

void Count(Transaction& transaction, const End& end) {
    tallies::CountRun(transaction, end.result, Word(end.outcome));
    tallies::CountRunOfDay(transaction, Today(), end.result);
    tallies::CountDuration(transaction, {BoundOf(end.duration), 1, end.duration.count()});
}

void CountDeath(Transaction& transaction) {
    tallies::CountRunOfDay(transaction, Today(), "died");
    tallies::CountRun(transaction, "died", Word(Outcome::kUnreached));
}

}  // namespace zelvek::run_end
