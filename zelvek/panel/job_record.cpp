// The job record: read at the start of a plug-in's run, written back at its end.
#include "vek/date.h"
#include "vek/err.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/jobs/history.h"
#include "zelvek/panel/functions.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/panel.h"

namespace zelvek {

namespace {

void WriteRecord(const jobs::Job& job, const account::Account& account, XmlAnswer::Element doc) {
    doc.Value("elid", job.id)
        .Value("certname", job.certname)
        .Value("kid", job.kid)
        .Value("aliases", job.aliases)
        .Value("finalize_check", job.finalize_check)
        .Value("challenges", job.challenges)
        .Value("check_type", job.check_type)
        .Value("domain", job.domain)
        .Value("finalize", job.finalize)
        .Value("modulus", job.modulus)
        .Value("acmekey", job.acmekey)
        .Value("attempt_count", job.attempt_count)
        .Flag("verified", job.verified)
        .Value("csr_internal_request", job.csr_internal_request)
        .Value("time_started", job.time_started)
        .Flag("failed", job.failed)
        .Flag("force_update", job.force_update)
        .Value("next_attempt", job.next_attempt)
        .Value("account_check_count", job.account_check_count)
        .Value("user_name", job.user_name)
        .Value("res_name", job.res_name)
        .Flag("skip_account_check", job.skip_account_check)
        .Value("default_kid", account.kid)
        .Value("default_pem", account.key)
        .Value("max_account_check_attempts", job.max_account_check_attempts);
}

void Read(Services& services, const Query& query, XmlAnswer& answer) {
    const int id = Number(query, "elid");
    {
        Transaction transaction(services.store);
        jobs::EndDeadRuns(transaction.database(), vek_date::DateTime().AsDateTime());
        jobs::Find(transaction.database(), id);
        transaction.Commit();
    }
    // What a killed run of this job left outside goes before this run publishes anything itself.
    services.publications.RemoveUnwanted(id);

    Transaction transaction(services.store);
    const jobs::Job job = jobs::Find(transaction.database(), id);
    jobs::SetReader(transaction.database(), id, query.caller);
    WriteRecord(job, account::Default(transaction.database()), answer.Doc());
    transaction.Commit();
}

/// What XML cannot carry is replaced: an authority may put anything into a URL, and refusing it here would
/// cost the whole write-back.
void SetText(const Query& query, const std::string& key, std::string& value) {
    if (query.parameters.Has(key)) value = names::MakeText(query.parameters.Get(key));
}

void SetNumber(const Query& query, const std::string& key, int& value) {
    if (query.parameters.Has(key)) value = Number(query, key);
}

void SetFlag(const Query& query, const std::string& key, bool& value) {
    if (query.parameters.Has(key)) value = Flag(query, key);
}

void SetDate(const Query& query, const std::string& key, std::string& value) {
    const std::string& text = query.parameters.Get(key);
    try {
        if (!text.empty()) vek_date::DateTime{text};
    } catch (const vek_err::Error&) {
        throw Error(Code::kValue, key, text, "\"" + text + "\" is no date and time for \"" + key + "\"");
    }
    SetText(query, key, value);
}

/// Takes over what the program sends; what it does not send stays.
void Take(const Query& query, jobs::Job& job) {
    const std::string key_before = job.acmekey;
    SetText(query, "kid", job.kid);
    SetText(query, "finalize_check", job.finalize_check);
    SetText(query, "challenges", job.challenges);
    SetText(query, "finalize", job.finalize);
    SetText(query, "modulus", job.modulus);
    SetText(query, "acmekey", job.acmekey);
    SetDate(query, "next_attempt", job.next_attempt);
    SetNumber(query, "attempt_count", job.attempt_count);
    SetNumber(query, "account_check_count", job.account_check_count);
    SetFlag(query, "verified", job.verified);
    SetFlag(query, "failed", job.failed);
    SetFlag(query, "force_update", job.force_update);
    job.processing = false;
    SetFlag(query, "processing", job.processing);
    // No run empties the key: an empty one comes from a run that could not read the record.
    if (job.acmekey.empty() && !key_before.empty()) {
        throw Error(Code::kStale, "ambrin.data", std::to_string(job.id),
                    "an empty account key does not replace the stored one");
    }
}

void TakeDefaultAccount(SQLite::Database& database, const Query& query, const jobs::Job& job) {
    bool update = false;
    SetFlag(query, "update_default_account", update);
    if (update && !job.kid.empty() && !job.acmekey.empty())
        account::SetDefault(database, {job.kid, job.acmekey});
}

void Write(Services& services, const Query& query) {
    const int id = Number(query, "elid");
    // A program that ends before it has read a record writes back all the same, for job 0.
    if (id == 0) return;
    const std::string now = vek_date::DateTime().AsDateTime();
    Transaction transaction(services.store);
    SQLite::Database& database = transaction.database();
    jobs::Job job = jobs::Find(database, id);
    if (job.reader != query.caller) {
        throw Error(Code::kStale, "ambrin.data", std::to_string(id),
                    "job " + std::to_string(id) + " was read by another process since");
    }
    Take(query, job);
    job.last_run = now;
    jobs::Save(database, job);
    for (const auto& event : SplitLog(names::MakeText(query.parameters.Get("log")), now)) {
        jobs::AddEvent(database, id, event);
    }
    TakeDefaultAccount(database, query, job);
    const bool done = job.challenges.empty() || job.failed || job.verified;
    done ? publications::SetUnwanted(database, id) : publications::SetKept(database, id);
    transaction.Commit();
}

}  // namespace

void functions::EditJob(Services& services, const Query& query, XmlAnswer& answer) {
    if (query.parameters.Get("sok") != "ok") {
        Read(services, query, answer);
        return;
    }
    Write(services, query);
    services.publications.RemoveUnwanted(Number(query, "elid"));
}

}  // namespace zelvek
