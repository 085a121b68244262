// The service and its jobs in short.
#include <utility>
#include <vector>

#include "vek/date.h"
#include "zelvek/base/version.h"
#include "zelvek/panel/authorities.h"
#include "zelvek/panel/functions.h"
#include "zelvek/panel/job_fields.h"
#include "zelvek/panel/living_runs.h"
#include "zelvek/store/job_lists.h"
#include "zelvek/store/jobs.h"

namespace zelvek {

namespace {

using job_lists::Kind;

constexpr int kFew = 5;

void AddService(const Services& services, XmlAnswer& answer) {
    answer.Doc()
        .Value("version", Version())
        .Value("started", services.facts.started)
        .Value("now", vek_date::DateTime().AsDateTime())
        .Value("database", services.facts.database)
        .Flag("scheduler", services.rules.Get()->scheduler);
}

/// The one that new jobs get, and each that is in use.
void AddAuthorities(std::vector<authorities::Authority> there, Transaction& transaction, XmlAnswer& answer) {
    for (const KnownAuthority& known : KnownAuthorities(std::move(there), transaction)) {
        const bool key = !known.account.acmekey.empty();
        if (known.is_default) {
            answer.Doc()
                .Value("authority", known.authority.directory)
                .Value("kid", known.account.kid)
                .Flag("key", key);
        }
        if (!known.InUse()) continue;
        answer.Doc()
            .Child("used")
            .Value("name", known.authority.name)
            .Value("directory", known.authority.directory)
            .Flag("default", known.is_default)
            .Value("jobs", known.jobs)
            .Value("kid", known.account.kid)
            .Flag("key", key);
    }
}

void AddCounts(Transaction& transaction, XmlAnswer& answer) {
    XmlAnswer::Element counts = answer.Doc().Child("jobs");
    for (const Kind kind : job_lists::kByAttention)
        counts.Value(job_lists::Word(kind), job_lists::Count(transaction, kind));
    answer.Doc().Value("runs", static_cast<long long>(jobs::Running(transaction).size()));
}

void AddEnding(Transaction& transaction, XmlAnswer& answer) {
    const job_lists::Selection soonest{Kind::kEnding, "", {}, kFew, "9999-12-31 23:59:59"};
    for (const Job& job : job_lists::Some(transaction, soonest)) {
        answer.Doc()
            .Child("ending")
            .Value("id", job.id)
            .Value("certname", job.certname)
            .Value("user_name", job.user_name)
            .Value("expires", job.expires);
    }
}

/// Whether a certificate that ends soon, or has ended, should have been renewed by now.
bool IsLate(const Job& job, const std::string& now) {
    return job.expires <= now || !job.verified || job.renew <= now;
}

/// Those that end within three days and are late, as far as one page of them shows.
void AddLate(Transaction& transaction, XmlAnswer& answer) {
    constexpr int kDays = 3;
    constexpr int kMostLooked = 1000;
    const vek_date::DateTime now;
    const std::string soon = vek_date::DateTime(now).AddDays(kDays).AsDateTime();
    int late = 0;
    for (const Job& job : job_lists::Some(transaction, {Kind::kEnding, "", {}, kMostLooked, soon})) {
        if (!IsLate(job, now.AsDateTime()) || ++late > kFew) continue;
        answer.Doc()
            .Child("late")
            .Value("id", job.id)
            .Value("certname", job.certname)
            .Value("user_name", job.user_name)
            .Value("expires", job.expires);
    }
    answer.Doc().Value("late_count", late);
}

void AddFailure(Transaction& transaction, const Job& job, XmlAnswer& answer) {
    XmlAnswer::Element failure = answer.Doc().Child("failure");
    failure.Value("id", job.id)
        .Value("certname", job.certname)
        .Value("user_name", job.user_name)
        .Value("failures", job.failures)
        .Flag("failed", job.failed)
        .Value("due", job.due)
        .Value("refusal", job.refusal);
    WriteLastFailure(transaction, job, failure);
}

void AddFailures(Transaction& transaction, XmlAnswer& answer) {
    int rest = kFew;
    for (const Kind kind : {Kind::kFailed, Kind::kFailing}) {
        if (rest == 0) return;
        for (const Job& job : job_lists::Some(transaction, {kind, "", {}, rest})) {
            AddFailure(transaction, job, answer);
            --rest;
        }
    }
}

void ShowStatus(Services& services, const Query&, XmlAnswer& answer) {
    auto there = authorities::All(services.plugins);
    LivingRuns transaction(services);
    AddService(services, answer);
    AddCounts(transaction, answer);
    AddEnding(transaction, answer);
    AddLate(transaction, answer);
    AddFailures(transaction, answer);
    AddAuthorities(std::move(there), transaction, answer);
    transaction.Commit();
}

}  // namespace

Functions functions::ServiceStatus() { return {{"zelvek.status", Right::kRead, &ShowStatus}}; }

}  // namespace zelvek
