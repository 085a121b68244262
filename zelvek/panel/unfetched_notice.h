#pragma once

#include <string>
#include <vector>

#include "zelvek/base/job.h"
#include "zelvek/store/history.h"
#include "zelvek/store/store.h"

namespace zelvek {

/// Tells the administrator, once for each certificate, that a run has finalized its order and got no
/// certificate: some authorities finish orders later than the program waits. `events` are the run's.
void TellOfUnfetched(Transaction& transaction, const Job& job, const std::vector<history::Event>& events,
                     const std::string& now);

}  // namespace zelvek
