#pragma once

#include "zelvek/base/job.h"
#include "zelvek/panel/functions.h"

/// For functions that show or start jobs.
namespace zelvek {

/// A transaction that sees no run of a dead process.
class LivingRuns : public Transaction {
public:
    explicit LivingRuns(Services& services);
};

/// A job of which no run is under way. Errors: Error of code kMissed, kBusy.
Job FindIdle(Transaction& transaction, int id);

/// One that may be started, too. Errors: as `FindIdle`; of code kBusy for a paused job.
Job FindStartable(Transaction& transaction, int id);

}  // namespace zelvek
