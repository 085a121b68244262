#include "zelvek/service/sweep.h"

#include <vector>

#include "vek/date.h"
#include "zelvek/certificates/install.h"
#include "zelvek/jobs/limits.h"
#include "zelvek/jobs/renewal.h"
#include "zelvek/notices/watch.h"
#include "zelvek/store/answered.h"
#include "zelvek/store/history.h"
#include "zelvek/store/page_deeds.h"
#include "zelvek/store/problems.h"
#include "zelvek/store/requests.h"
#include "zelvek/store/restarts.h"
#include "zelvek/store/runs.h"
#include "zelvek/store/tallies.h"

namespace zelvek {

namespace {

// How long a request and its key wait for somebody when their maker has died.
constexpr int kKeepLeftRequests = 600;  // seconds

// How long an answer is kept for a query that comes again: much longer than any caller tries.
constexpr int kKeepAnswers = 3600;  // seconds

// Entries that one sweep forgets at most, so that nobody waits long for the store.
constexpr int kForgetAtOnce = 500;

// Certificates whose end one sweep looks up.
constexpr int kLookedAtOnce = 100;
constexpr int kHour = 3600;  // seconds
constexpr int kDay = 24 * kHour;

std::string DaysBefore(const vek_date::DateTime& now, int days) {
    return vek_date::DateTime(now).AddDays(-days).AsDateTime();
}

void FreeWhatTheDeadHold(Services& services, const vek_date::DateTime& now) {
    Transaction transaction(services.store);
    FreeJobsOfTheDead(transaction, now.AsDateTime(), services.rules.Get()->retry);
    runs::ForgetDeadProcesses(transaction);
    requests::RemoveLeft(transaction, vek_date::DateTime(now).AddSeconds(-kKeepLeftRequests).AsDateTime());
    transaction.Commit();
}

/// The end of certificates that were installed before the service took note of it. One that cannot be read is
/// renewed within a day.
void FindMissingEnds(Services& services, const vek_date::DateTime& now) {
    std::vector<Job> found;
    {
        Transaction transaction(services.store);
        found = restarts::OfUnknownEnd(transaction, kLookedAtOnce);
    }
    for (const Job& job : found) {
        const auto lifetime = install::InstalledLifetime(services.install, job.user_name, job.certname);
        const int some_time = kHour + static_cast<int>((kDay - kHour) * RandomSpread());
        const restarts::Validity soon{now.AsDateTime(),
                                      vek_date::DateTime(now).AddSeconds(some_time).AsDateTime()};
        Transaction transaction(services.store);
        restarts::SetValidity(transaction, job.user_name, job.folder,
                              lifetime ? ValidityOf(lifetime->from, lifetime->until, RandomSpread()) : soon);
        transaction.Commit();
    }
}

void ForgetOld(Services& services, const Retention& retention, const vek_date::DateTime& now) {
    Transaction transaction(services.store);
    history::RemoveOlder(transaction, DaysBefore(now, retention.history_days), kForgetAtOnce);
    problems::RemoveOlder(transaction, DaysBefore(now, retention.notification_days),
                          retention.notification_entries, kForgetAtOnce);
    page_deeds::RemoveOlder(transaction, DaysBefore(now, retention.history_days), kForgetAtOnce);
    tallies::ForgetDaysBefore(transaction, DaysBefore(now, retention.history_days));
    ForgetOldUse(transaction, now.AsDateTime());
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
    FindMissingEnds(services, now);
    notices::WatchCertificates(services.store, now);
    ForgetOld(services, retention, now);
    services.store.Tidy();
}

}  // namespace zelvek
