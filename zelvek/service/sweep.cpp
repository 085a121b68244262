#include "zelvek/service/sweep.h"

#include "vek/date.h"
#include "zelvek/store/history.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/problems.h"
#include "zelvek/store/requests.h"

namespace zelvek {

namespace {

// How long a request and its key wait for somebody when their maker has died.
constexpr std::chrono::seconds kKeepLeftRequests{600};

// Entries that one sweep forgets at most, so that nobody waits long for the store.
constexpr int kForgetAtOnce = 500;

std::string Before(const vek_date::DateTime& now, std::chrono::seconds age) {
    return vek_date::DateTime(now).AddSeconds(-static_cast<int>(age.count())).AsDateTime();
}

void FreeWhatTheDeadHold(Services& services, const vek_date::DateTime& now) {
    Transaction transaction(services.store);
    FreeJobsOfTheDead(transaction, now.AsDateTime(), services.retry);
    jobs::ForgetDeadProcesses(transaction);
    requests::RemoveLeft(transaction, Before(now, kKeepLeftRequests));
    transaction.Commit();
}

void ForgetOld(Services& services, const Retention& retention, const vek_date::DateTime& now) {
    Transaction transaction(services.store);
    history::RemoveOlder(transaction, Before(now, retention.history), kForgetAtOnce);
    problems::RemoveOlder(transaction, Before(now, retention.notifications), retention.most_notifications,
                          kForgetAtOnce);
    transaction.Commit();
}

}  // namespace

void Sweep(Services& services, const Retention& retention) {
    const vek_date::DateTime now;
    FreeWhatTheDeadHold(services, now);
    services.publisher.RemoveUnwanted();
    ForgetOld(services, retention, now);
}

}  // namespace zelvek
