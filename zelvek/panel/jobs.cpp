// Jobs as people see them: shown, claimed for a run, started anew, paused.
#include "zelvek/store/jobs.h"
#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/base/names.h"
#include "zelvek/jobs/reason.h"
#include "zelvek/jobs/registration.h"
#include "zelvek/panel/functions.h"
#include "zelvek/panel/job_fields.h"
#include "zelvek/panel/living_runs.h"
#include "zelvek/panel/repetition.h"
#include "zelvek/store/findings.h"
#include "zelvek/store/history.h"
#include "zelvek/store/reloads.h"
#include "zelvek/store/restarts.h"
#include "zelvek/store/runs.h"
#include "zelvek/store/served.h"

namespace zelvek {

namespace {

constexpr int kStartedAtOnce = 500;

/// Of the installed certificate, where the web server has not taken it over.
std::optional<reloads::Reload> FailedReload(Transaction& transaction, const Job& job) {
    if (names::ComparedFolderIfAny(job.certname).empty()) return std::nullopt;
    auto reload = reloads::Find(transaction, job.user_name, str::puny::Encode(job.certname));
    return reload && reload->failures > 0 ? std::move(reload) : std::nullopt;
}

void AddReload(Transaction& transaction, const Job& job, XmlAnswer& answer) {
    const auto reload = FailedReload(transaction, job);
    if (!reload) return;
    answer.Doc()
        .Child("reload")
        .Value("since", reload->since)
        .Value("failures", reload->failures)
        .Value("next", reload->next)
        .Value("reason", names::MakeText(reload->reason));
}

/// What the job does next, or what is wrong with it, in words.
void AddReason(Transaction& transaction, const Job& job, const std::vector<history::Event>& events,
               XmlAnswer& answer) {
    JobFacts facts{job,
                   events,
                   findings::Of(transaction, job.id),
                   FailedReload(transaction, job),
                   served::Find(transaction, job.user_name, names::ComparedFolderIfAny(job.certname)),
                   vek_date::DateTime().AsDateTime()};
    const Reason reason = ReasonOf(facts);
    answer.Doc().Value("sentence", names::MakeText(reason.sentence));
    for (const std::string& detail : reason.details)
        answer.Doc().Child("finding").Value("text", names::MakeText(detail));
}

void ShowJob(Services& services, const Query& query, XmlAnswer& answer) {
    LivingRuns transaction(services);
    const int id = JobAsked(transaction, query);
    const Job job = jobs::FindShown(transaction, id);
    const auto events = history::Of(transaction, id);
    XmlAnswer::Element doc = answer.Doc();
    WriteFields(job, JobField::kInLists, doc.Value("id", id));
    WriteLastFailure(transaction, job, doc);
    AddReason(transaction, job, events, answer);
    for (const auto& event : events) {
        answer.Doc()
            .Child("event")
            .Value("time", event.time)
            .Value("state", event.state)
            .Value("event", event.event)
            .Value("detail", event.detail);
    }
    AddReload(transaction, job, answer);
    transaction.Commit();
}

void ClaimJob(Services& services, const Query& query, XmlAnswer& answer) {
    LivingRuns transaction(services);
    if (AnsweredBefore(transaction, query, answer)) return;
    const Job job = FindStartable(transaction, JobAsked(transaction, query));
    if (const auto other = RegistrationUnderWay(transaction, job)) {
        throw Error(Code::kBusy, "ambrin.data", std::to_string(job.id),
                    "job " + std::to_string(*other) +
                        " is registering the panel's account, which this job can use: try again when it has");
    }
    // Whoever runs a stopped job gives it another try: as long as it counts as failed, nothing stays
    // published for it.
    restarts::Revive(transaction, job.id);
    runs::Claim(transaction, job.id, query.caller);
    RememberAnswer(transaction, query, answer);
    transaction.Commit();
}

/// One job, or each of a user's or of all, or those that end within some days.
void RenewJobs(Services& services, const Query& query, XmlAnswer& answer) {
    const vek_date::DateTime now;
    if (query.parameters.Has("elid")) {
        LivingRuns transaction(services);
        restarts::StartAnew(transaction, FindStartable(transaction, JobAsked(transaction, query)).id,
                            now.AsDateTime(), true);
        transaction.Commit();
        answer.Doc().Value("count", 1);
        return;
    }
    restarts::Renewable which{0, kStartedAtOnce, query.parameters.Get("user_name"), ""};
    if (query.parameters.Has("days")) {
        which.before = vek_date::DateTime(now).AddDays(Number(query, "days")).AsDateTime();
    }
    long long count = 0;
    for (std::size_t found = kStartedAtOnce; found == kStartedAtOnce;) {
        // In steps, so that nobody waits long for the store.
        Transaction transaction(services.store);
        const std::vector<int> some = restarts::ToRenew(transaction, which);
        for (const int job : some) restarts::StartAnew(transaction, job, now.AsDateTime(), true);
        transaction.Commit();
        found = some.size();
        count += static_cast<long long>(found);
        if (!some.empty()) which.after = some.back();
    }
    answer.Doc().Value("count", count);
}

/// One job, or all of a user's or of everybody's that have no certificate.
void RetryJobs(Services& services, const Query& query, XmlAnswer& answer) {
    const std::string now = vek_date::DateTime().AsDateTime();
    if (query.parameters.Has("elid")) {
        LivingRuns transaction(services);
        restarts::Retry(transaction, FindStartable(transaction, JobAsked(transaction, query)).id, now);
        transaction.Commit();
        answer.Doc().Value("count", 1);
        return;
    }
    int after = 0;
    long long count = 0;
    for (std::size_t found = kStartedAtOnce; found == kStartedAtOnce;) {
        Transaction transaction(services.store);
        const std::vector<int> some =
            restarts::ToRetry(transaction, after, kStartedAtOnce, query.parameters.Get("user_name"));
        for (const int job : some) restarts::Retry(transaction, job, now);
        transaction.Commit();
        found = some.size();
        count += static_cast<long long>(found);
        if (!some.empty()) after = some.back();
    }
    answer.Doc().Value("count", count);
}

/// A run that is under way goes on to its end.
void PauseJob(Services& services, const Query& query, XmlAnswer&) {
    Transaction transaction(services.store);
    restarts::Pause(transaction, jobs::FindShown(transaction, JobAsked(transaction, query)).id);
    transaction.Commit();
}

void ResumeJob(Services& services, const Query& query, XmlAnswer&) {
    LivingRuns transaction(services);
    restarts::Resume(transaction, jobs::FindShown(transaction, JobAsked(transaction, query)).id,
                     vek_date::DateTime().AsDateTime());
    transaction.Commit();
}

}  // namespace

Functions functions::Jobs() {
    return {
        {"zelvek.job.show", Right::kRead, &ShowJob},      {"zelvek.job.claim", Right::kOwn, &ClaimJob},
        {"zelvek.job.renew", Right::kChange, &RenewJobs}, {"zelvek.job.retry", Right::kChange, &RetryJobs},
        {"zelvek.job.pause", Right::kChange, &PauseJob},  {"zelvek.job.resume", Right::kChange, &ResumeJob}};
}

}  // namespace zelvek
