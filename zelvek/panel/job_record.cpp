// The job record: read at the start of a plug-in's run, written back at its end.
#include <algorithm>

#include "vek/date.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/jobs/limits.h"
#include "zelvek/jobs/outcome.h"
#include "zelvek/jobs/run_end.h"
#include "zelvek/jobs/run_log.h"
#include "zelvek/panel/account_notices.h"
#include "zelvek/panel/functions.h"
#include "zelvek/panel/job_fields.h"
#include "zelvek/panel/repetition.h"
#include "zelvek/panel/unfetched_notice.h"
#include "zelvek/store/accounts.h"
#include "zelvek/store/findings.h"
#include "zelvek/store/history.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/problems.h"
#include "zelvek/store/publications.h"
#include "zelvek/store/runs.h"

namespace zelvek {

namespace {

void ReadRecord(Services& services, const Query& query, XmlAnswer& answer) {
    const int id = Number(query, "elid");
    const std::string now = vek_date::DateTime().AsDateTime();
    {
        Transaction transaction(services.store);
        FreeJobsOfTheDead(transaction, now, services.rules.Get()->retry);
        jobs::FindShown(transaction, id);
        transaction.Commit();
    }
    // What a killed run of this job left outside goes before this run publishes anything itself.
    services.publisher.RemoveUnwanted(id);

    Transaction transaction(services.store);
    Job job = jobs::Find(transaction, id);
    if (MakeTimesReadable(job, now)) runs::SetTimes(transaction, job);
    runs::Hold(transaction, id, query.caller);
    jobs::SetRefusal(transaction, id, "");
    NoteRun(transaction, job, now);
    const accounts::Account account = accounts::Default(transaction, job.authority);
    WriteFields(job, JobField::kInRecord, answer.Doc().Value("elid", id));
    answer.Doc().Value("default_kid", account.kid).Value("default_pem", account.acmekey);
    transaction.Commit();
}

void CheckHolder(const Query& query, const Job& job) {
    if (job.holder == query.caller) return;
    const std::string id = std::to_string(job.id);
    throw Error(Code::kStale, "ambrin.data", id, "job " + id + " was read by another process since");
}

/// The newest events are kept, so that a job that fails for years does not fill the disk.
void KeepHistory(Services& services, Transaction& transaction, int id,
                 const std::vector<history::Event>& events) {
    for (const auto& event : events) history::Add(transaction, id, event);
    history::Shorten(transaction, id, services.rules.Get()->history_entries);
}

void KeepDefaultAccount(Transaction& transaction, const Query& query, const Job& job) {
    const bool update =
        query.parameters.Has("update_default_account") && Flag(query, "update_default_account");
    if (update && !job.kid.empty() && !job.acmekey.empty()) accounts::MakeDefault(transaction, job.id);
}

/// Later runs of a job with challenges look for what was published for them. Where nothing was, because the
/// run ended too early, they would look in vain until the job's day is over: without its challenges the job
/// begins a new order.
void KeepPublications(Transaction& transaction, const Process& writer, Job& job) {
    const bool done = job.challenges.empty() || job.failed || job.verified;
    if (done) publications::SetUnwanted(transaction, job.id);
    if (!done && publications::Keep(transaction, job.id, writer) == 0) job.challenges.clear();
}

/// A run that asks for new records too early is told "no", and so is everybody who asks the same name server
/// for a while after it.
void WaitForRecords(Transaction& transaction, Job& job) {
    job.postponed.clear();
    if (job.check_type != "dns" || job.challenges.empty() || job.verified || job.failed) return;
    const std::string seen = publications::SeenByAll(transaction, job.id);
    if (seen <= job.due) return;
    job.due = seen;
    job.postponed = "name servers may go on saying for a while that the new records are not there";
}

/// Somebody looks later what stands where the names were not found proved, or the records not seen.
void AskForExamination(Transaction& transaction, const Job& job, const std::vector<history::Event>& events,
                       const std::string& now) {
    const bool refused = std::any_of(events.begin(), events.end(), &IsFailedCheck);
    const bool paused = job.check_type == "dns" && !job.challenges.empty() && job.next_attempt > now;
    if (job.verified) {
        findings::Forget(transaction, job.id);
    } else if (refused || paused) {
        findings::Ask(transaction, job.id, now);
    }
}

void WriteRecordBack(Services& services, const Query& query, XmlAnswer& answer) {
    const int id = Number(query, "elid");
    // A program that ends before it has read a record writes back all the same, for job 0.
    if (id == 0) return;
    const std::string now = vek_date::DateTime().AsDateTime();
    Transaction transaction(services.store);
    if (AnsweredBefore(transaction, query, answer)) return;
    Job job = jobs::Find(transaction, id);
    const std::string account_before = accounts::Default(transaction, job.authority).kid;
    CheckHolder(query, job);
    const bool verified_before = job.verified;
    ApplyWriteBack(query, job);
    KeepPublications(transaction, query.caller, job);
    job.last_run = now;
    const auto events = SplitLog(names::MakeText(query.parameters.Get("log")), now);
    const Outcome outcome = OutcomeOfRun(job, events, now);
    job.died = false;
    PlanNextRun(job, outcome, services.rules.Get()->retry, now);
    WaitForRecords(transaction, job);
    NoteEnd(transaction, job, events, now);
    run_end::Count(transaction,
                   {run_end::ResultOf(job, outcome, verified_before), outcome, AgeOf(query.caller)});
    AskForExamination(transaction, job, events, now);
    jobs::Save(transaction, job);
    if (job.verified) problems::ResolveOfCertificate(transaction, job.user_name, job.folder);
    KeepHistory(services, transaction, id, events);
    KeepDefaultAccount(transaction, query, job);
    if (outcome == Outcome::kUnfetched) TellOfUnfetched(transaction, job, events, now);
    TellOfAccount(transaction, job, account_before, now);
    RememberAnswer(transaction, query, answer);
    transaction.Commit();
}

void ReadOrWrite(Services& services, const Query& query, XmlAnswer& answer) {
    if (query.parameters.Get("sok") != "ok") {
        ReadRecord(services, query, answer);
        return;
    }
    WriteRecordBack(services, query, answer);
    services.publisher.RemoveUnwanted(Number(query, "elid"));
}

}  // namespace

Functions functions::JobRecord() { return {{"ambrin.data.edit", Right::kOwn, &ReadOrWrite}}; }

}  // namespace zelvek
