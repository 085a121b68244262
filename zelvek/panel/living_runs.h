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

/// The number of the job that the query names by "elid". With "user_name" the job has to be that user's:
/// another one's is as if it were not there. Errors: Error of code kValue, kMissed.
int JobAsked(Transaction& transaction, const Query& query);

/// The same of the number `id`, of which a query's list is to go on. Errors: Error of code kMissed.
Job JobOfUserAsked(Transaction& transaction, const Query& query, int id);

/// A job of which no run is under way. Errors: Error of code kMissed, kBusy.
Job FindIdle(Transaction& transaction, int id);

/// One that may be started, too. Errors: as `FindIdle`; of code kBusy for a paused job.
Job FindStartable(Transaction& transaction, int id);

}  // namespace zelvek
