#pragma once

#include <array>
#include <chrono>
#include <string>

#include "zelvek/base/job.h"
#include "zelvek/jobs/outcome.h"
#include "zelvek/store/store.h"

/// Ended runs are counted, for who watches the service.
namespace zelvek::run_end {

/// Seconds by which durations are counted, each with all that are not longer; the last one is no bound.
inline constexpr std::array<int, 12> kBounds{1, 2, 5, 10, 30, 60, 120, 300, 600, 1800, 3600, 0};

struct End {
    std::string result;  // as `ResultOf` has it
    Outcome outcome = Outcome::kOnItsWay;
    std::chrono::milliseconds duration{0};
};

/// What became of a job that a run has written back: "installed", "nothing_to_do" where it was installed
/// before, "stopped", "waiting" where nothing failed, "failed".
std::string ResultOf(const Job& job, Outcome outcome, bool verified_before);

void Count(Transaction& transaction, const End& end);

/// The same of a run that has written nothing back: its result is "died". When it ended, nobody knows.
void CountDeath(Transaction& transaction);

}  // namespace zelvek::run_end
