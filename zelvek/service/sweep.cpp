#include "zelvek/service/sweep.h"

#include "vek/date.h"
#include "zelvek/store/answered.h"
#include "zelvek/store/history.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/problems.h"
#include "zelvek/store/requests.h"

namespace zelvek {

namespace {

// How long a request and its key wait for somebody when their maker has died.
constexpr int kKeepLeftRequests = 600;  // seconds

// How long an answer is kept for a query that comes again: much longer than any caller tries.
constexpr int kKeepAnswers = 3600;  // seconds

// Entries that one sweep forgets at most, so that nobody waits long for the store.
constexpr int kForgetAtOnce = 500;

std::string DaysBefore(const vek_date::DateTime& now, int days) {
    return vek_date::DateTime(now).AddDays(-days).AsDateTime();
}

void FreeWhatTheDeadHold(Services& services, const vek_date::DateTime& now) {
    Transaction transaction(services.store);
    FreeJobsOfTheDead(transaction, now.AsDateTime(), services.retry);
    jobs::ForgetDeadProcesses(transaction);
    requests::RemoveLeft(transaction, vek_date::DateTime(now).AddSeconds(-kKeepLeftRequests).AsDateTime());
    transaction.Commit();
}

void ForgetOld(Services& services, const Retention& retention, const vek_date::DateTime& now) {
    Transaction transaction(services.store);
    history::RemoveOlder(transaction, DaysBefore(now, retention.history_days), kForgetAtOnce);
    problems::RemoveOlder(transaction, DaysBefore(now, retention.notification_days),
                          retention.notification_entries, kForgetAtOnce);
    answered::RemoveOlder(transaction, vek_date::DateTime(now).AddSeconds(-kKeepAnswers).AsDateTime(),
                          kForgetAtOnce);
    transaction.Commit();
}

}  // namespace

void Sweep(Services& services, const Retention& retention) {
    const vek_date::DateTime now;
    FreeWhatTheDeadHold(services, now);
    services.publisher.RemoveUnwanted();
    services.publisher.PublishMissing();
    ForgetOld(services, retention, now);
    services.store.Tidy();
}

}  // namespace zelvek
