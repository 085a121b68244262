#include "zelvek/store/jobs.h"

#include <algorithm>
#include <functional>
#include <set>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/store/accounts.h"

namespace zelvek::jobs {

namespace {

using Fields = std::vector<JobField>;

constexpr int kSome = 500;  // jobs in memory at once

Fields FieldsWith(const std::function<bool(const JobField&)>& wanted) {
    Fields fields;
    for (const JobField& field : kJobFields) {
        if (wanted(field)) fields.push_back(field);
    }
    return fields;
}

/// Set when the job is added.
const Fields& NewFields() {
    static const Fields fields = FieldsWith([](const JobField& field) {
        return field.writer == JobField::Writer::kPanel || field.key == std::string("due");
    });
    return fields;
}

/// Of those that change later, the job's own; the account's are kept with the account.
const Fields& ChangingFields() {
    static const Fields fields = FieldsWith([](const JobField& field) {
        return field.writer != JobField::Writer::kPanel && field.kept == JobField::Kept::kWithJob;
    });
    return fields;
}

const Fields& AllFields() {
    static const Fields fields = FieldsWith([](const JobField&) { return true; });
    return fields;
}

/// What lists have, and what says when the job runs again.
const Fields& ShownFields() {
    static const Fields fields = FieldsWith([](const JobField& field) {
        return (field.shown & JobField::kInLists) != 0 || field.writer == JobField::Writer::kService;
    });
    return fields;
}

std::string Column(const JobField& field) {
    return (field.kept == JobField::Kept::kWithAccount ? "account." : "job.") + std::string(field.key);
}

/// "SELECT ... FROM job ..." for these fields, up to its condition. A job without an account has empty texts
/// there.
std::string SelectText(const Fields& fields) {
    std::string columns;
    for (const JobField& field : fields) {
        const bool joined = field.kept == JobField::Kept::kWithAccount;
        columns += ", " + (joined ? "coalesce(" + Column(field) + ", '')" : Column(field));
    }
    return "SELECT job.id, job.holder_pid, job.holder_start" + columns +
           " FROM job LEFT JOIN account ON account.id = job.account ";
}

void Receive(Statement& statement, Job& job, const Fields& fields) {
    statement.Into(job.id).Into(job.holder.pid).Into(job.holder.start);
    for (const JobField& field : fields) {
        std::visit([&](auto member) { statement.Into(job.*member); }, field.member);
    }
}

void Give(Statement& statement, const Job& job, const Fields& fields) {
    for (const JobField& field : fields) {
        std::visit([&](auto member) { statement.With(job.*member); }, field.member);
    }
}

std::vector<Job> Read(Statement& statement, const Fields& fields) {
    std::vector<Job> jobs;
    Job job;
    Receive(statement, job, fields);
    while (statement.Next()) jobs.push_back(job);
    return jobs;
}

/// The first column of what is found.
std::vector<int> ReadIds(Statement& select) {
    std::vector<int> ids;
    int id = 0;
    select.Into(id);
    while (select.Next()) ids.push_back(id);
    return ids;
}

Job FindWith(Transaction& transaction, int id, const Fields& fields, const std::string& select) {
    Statement statement = transaction.Prepare(select);
    const std::vector<Job> found = Read(statement.With(id), fields);
    if (found.empty()) {
        throw Error(Code::kMissed, "ambrin.data", str::Str(id), "there is no job " + str::Str(id));
    }
    return found.front();
}

std::string InsertText() {
    std::string columns;
    std::string places;
    for (const JobField& field : NewFields()) {
        str::inpl::Append(columns, field.key, ", ");
        str::inpl::Append(places, std::string(":") + field.key, ", ");
    }
    return "INSERT INTO job (" + columns + ") VALUES (" + places + ") RETURNING id";
}

std::string UpdateText() {
    std::string changes;
    for (const JobField& field : ChangingFields()) {
        str::inpl::Append(changes, std::string(field.key) + " = :" + field.key, ", ");
    }
    return "UPDATE job SET " + changes + " WHERE id = :id";
}

/// Some jobs after that one, by number; of each its number and its certificate's name.
std::vector<Job> SomeAfter(Transaction& transaction, int id) {
    std::vector<Job> some;
    Job job;
    Statement select =
        transaction.Prepare("SELECT id, certname FROM job WHERE id > :after ORDER BY id LIMIT :most");
    select.With(id).With(kSome).Into(job.id).Into(job.certname);
    while (select.Next()) some.push_back(job);
    return some;
}

/// Nothing for a name that cannot be installed: older versions took longer ones.
std::string FolderOf(const Job& job) {
    try {
        return names::ComparedFolder(job.certname);
    } catch (const Error&) {
        return "";
    }
}

/// Each state has an index of its own, so that a page of a few jobs among many does not read all of them.
std::string Condition(State state) {
    switch (state) {
        case State::kVerified: return " AND job.verified = 1";
        case State::kFailed: return " AND job.failed = 1 AND job.verified = 0";
        case State::kRunning: return " AND job.processing = 1 AND job.verified = 0 AND job.failed = 0";
        case State::kWaiting: return " AND job.verified = 0 AND job.failed = 0 AND job.processing = 0";
        case State::kAny: break;
    }
    return "";
}

}  // namespace

int Add(Transaction& transaction, const Job& job) {
    static const std::string text = InsertText();
    Statement insert = transaction.Prepare(text);
    Give(insert, job, NewFields());
    int id = 0;
    insert.Into(id).Next();
    return id;
}

std::optional<int> OfFolder(Transaction& transaction, const std::string& user, const std::string& folder) {
    int id = 0;
    Statement select = transaction.Prepare(
        "SELECT id FROM job WHERE user_name = :user AND folder = :folder ORDER BY id LIMIT 1");
    if (!select.With(user).With(folder).Into(id).Next()) return std::nullopt;
    return id;
}

void NameFolders(Transaction& transaction) {
    if (transaction.Prepare("DELETE FROM setting WHERE name = 'folders_missing'").Run() == 0) return;
    int last = 0;
    for (auto some = SomeAfter(transaction, last); !some.empty(); some = SomeAfter(transaction, last)) {
        for (const Job& job : some) {
            transaction.Prepare("UPDATE job SET folder = :folder WHERE id = :id")
                .With(FolderOf(job))
                .With(job.id)
                .Run();
            last = job.id;
        }
    }
}

Job Find(Transaction& transaction, int id) {
    static const std::string text = SelectText(AllFields()) + "WHERE job.id = :id";
    return FindWith(transaction, id, AllFields(), text);
}

Job FindShown(Transaction& transaction, int id) {
    static const std::string text = SelectText(ShownFields()) + "WHERE job.id = :id";
    return FindWith(transaction, id, ShownFields(), text);
}

std::vector<Job> List(Transaction& transaction, const Selection& selection) {
    const std::string of_user = selection.user_name.empty() ? "" : "job.user_name = :user AND ";
    Statement select =
        transaction.Prepare(SelectText(ShownFields()) + "WHERE " + of_user + "job.id > :after" +
                            Condition(selection.state) + " ORDER BY job.id LIMIT :most");
    if (!of_user.empty()) select.With(selection.user_name);
    return Read(select.With(selection.after).With(selection.limit), ShownFields());
}

void Save(Transaction& transaction, const Job& job) {
    static const std::string text = UpdateText();
    Statement update = transaction.Prepare(text);
    Give(update, job, ChangingFields());
    update.With(job.id).Run();
    accounts::SetOfJob(transaction, job.id, {job.kid, job.acmekey, job.modulus});
}

void Claim(Transaction& transaction, int id, const Process& process) {
    transaction
        .Prepare("UPDATE job SET processing = 1, holder_pid = :pid, holder_start = :start WHERE id = :id")
        .With(process.pid)
        .With(process.start)
        .With(id)
        .Run();
}

void Hold(Transaction& transaction, int id, const Process& process) {
    Claim(transaction, id, process);
    transaction
        .Prepare(
            "INSERT INTO reader (pid, start, job) VALUES (:pid, :start, :job)"
            " ON CONFLICT (pid) DO UPDATE SET start = excluded.start, job = excluded.job")
        .With(process.pid)
        .With(process.start)
        .With(id)
        .Run();
}

int JobOf(Transaction& transaction, const Process& process) {
    int job = 0;
    Statement select = transaction.Prepare("SELECT job FROM reader WHERE pid = :pid AND start = :start");
    return select.With(process.pid).With(process.start).Into(job).Next() ? job : 0;
}

void ForgetDeadProcesses(Transaction& transaction) {
    std::vector<Process> dead;
    Process reader;
    Statement select = transaction.Prepare("SELECT pid, start FROM reader");
    select.Into(reader.pid).Into(reader.start);
    while (select.Next()) {
        if (!Alive(reader)) dead.push_back(reader);
    }
    for (const Process& process : dead) {
        transaction.Prepare("DELETE FROM reader WHERE pid = :pid").With(process.pid).Run();
    }
}

std::vector<Job> Running(Transaction& transaction) {
    static const std::string text = SelectText(ShownFields()) + "WHERE job.processing = 1 ORDER BY job.id";
    Statement select = transaction.Prepare(text);
    return Read(select, ShownFields());
}

std::vector<int> Due(Transaction& transaction, const std::string& now, int limit) {
    Statement select = transaction.Prepare(
        "SELECT id FROM (SELECT id, due, row_number() OVER (PARTITION BY user_name ORDER BY due, id)"
        " + (SELECT count(*) FROM job AS run WHERE run.processing = 1 AND run.user_name = job.user_name) AS "
        "turn"
        " FROM job WHERE verified = 0 AND failed = 0 AND processing = 0 AND due <= :now) AS waiting"
        " ORDER BY turn, due, id LIMIT :most");
    select.With(now).With(limit);
    return ReadIds(select);
}

std::vector<int> WaitingTooLong(Transaction& transaction, const std::string& now, const std::string& latest,
                                int limit) {
    const std::string waiting =
        "SELECT id FROM job WHERE verified = 0 AND failed = 0 AND processing = 0 AND ";
    std::set<int> found;
    const auto find = [&](const std::string& reason, const std::string& time) {
        int id = 0;
        Statement select = transaction.Prepare(waiting + reason + " LIMIT :most");
        select.With(time).With(limit).Into(id);
        while (select.Next()) found.insert(id);
    };
    find("last_run > :now", now);
    find("last_run = '' AND next_attempt = '' AND due > :now", now);
    find("due > :latest", latest);
    return {found.begin(), found.end()};
}

void SetTimes(Transaction& transaction, const Job& job) {
    transaction
        .Prepare(
            "UPDATE job SET time_started = :started, last_run = :last_run, next_attempt = :next, due = :due"
            " WHERE id = :id")
        .With(job.time_started)
        .With(job.last_run)
        .With(job.next_attempt)
        .With(job.due)
        .With(job.id)
        .Run();
}

void Free(Transaction& transaction, const Job& job) {
    transaction
        .Prepare(
            "UPDATE job SET processing = 0, last_run = :last_run, failures = :failures, due = :due WHERE id "
            "= :id")
        .With(job.last_run)
        .With(job.failures)
        .With(job.due)
        .With(job.id)
        .Run();
}

void SetValidity(Transaction& transaction, const std::string& user, const std::string& folder,
                 const Validity& validity) {
    transaction
        .Prepare(
            "UPDATE job SET expires = :expires, renew = :renew WHERE user_name = :user AND folder = :folder")
        .With(validity.expires)
        .With(validity.renew)
        .With(user)
        .With(folder)
        .Run();
}

std::vector<int> RenewalDue(Transaction& transaction, const std::string& now, int limit) {
    Statement select = transaction.Prepare(
        "SELECT id FROM job WHERE verified = 1 AND renew > '' AND renew <= :now AND processing = 0"
        " ORDER BY renew, id LIMIT :most");
    select.With(now).With(limit);
    return ReadIds(select);
}

std::vector<int> StoppedDue(Transaction& transaction, const std::string& now, int limit) {
    Statement select = transaction.Prepare(
        "SELECT id FROM job WHERE failed = 1 AND verified = 0 AND processing = 0 AND due <= :now"
        " ORDER BY due, id LIMIT :most");
    select.With(now).With(limit);
    return ReadIds(select);
}

void SetRefusal(Transaction& transaction, int id, const std::string& sentence) {
    transaction.Prepare("UPDATE job SET refusal = :refusal WHERE id = :id").With(sentence).With(id).Run();
}

std::vector<int> ToRetry(Transaction& transaction, int after, int limit, const std::string& user) {
    std::vector<int> found;
    // Each state has an index of its own.
    for (const State state : {State::kWaiting, State::kFailed}) {
        for (const Job& job : List(transaction, {after, limit, user, state})) {
            if (!job.processing) found.push_back(job.id);
        }
    }
    std::sort(found.begin(), found.end());
    if (found.size() > static_cast<std::size_t>(limit)) found.resize(static_cast<std::size_t>(limit));
    return found;
}

void Retry(Transaction& transaction, int id, const std::string& now) {
    if (FindShown(transaction, id).failed) StartAnew(transaction, id, now, false);
    transaction.Prepare("UPDATE job SET due = :now, next_attempt = '', failures = 0 WHERE id = :id")
        .With(now)
        .With(id)
        .Run();
}

std::vector<Job> OfUnknownEnd(Transaction& transaction, int limit) {
    std::vector<Job> found;
    Job job;
    Statement select = transaction.Prepare(
        "SELECT id, certname, user_name, folder FROM job WHERE verified = 1 AND expires = '' ORDER BY id "
        "LIMIT :most");
    select.With(limit).Into(job.id).Into(job.certname).Into(job.user_name).Into(job.folder);
    while (select.Next()) found.push_back(job);
    return found;
}

std::vector<int> ToRenew(Transaction& transaction, const Renewable& which) {
    const std::string of_user = which.user_name.empty() ? "" : "user_name = :user AND ";
    const std::string ending = which.before.empty() ? "" : " AND expires < :before";
    Statement select = transaction.Prepare("SELECT id FROM job WHERE " + of_user +
                                           "id > :after AND verified = 1 AND processing = 0" + ending +
                                           " ORDER BY id LIMIT :most");
    if (!of_user.empty()) select.With(which.user_name);
    select.With(which.after);
    if (!ending.empty()) select.With(which.before);
    select.With(which.limit);
    return ReadIds(select);
}

void StartAnew(Transaction& transaction, int id, const std::string& now, bool forced) {
    transaction
        .Prepare(
            "UPDATE job SET verified = 0, failed = 0, force_update = :forced, time_started = :now, due = "
            ":due,"
            " next_attempt = '', attempt_count = 0, account_check_count = 0, challenges = '', finalize = '',"
            " finalize_check = '' WHERE id = :id")
        .With(forced)
        .With(now)
        .With(now)
        .With(id)
        .Run();
}

void Revive(Transaction& transaction, int id) {
    transaction.Prepare("UPDATE job SET failed = 0 WHERE id = :id").With(id).Run();
}

bool ClaimIfDue(Transaction& transaction, int id, const Process& process, const std::string& now) {
    return transaction
               .Prepare(
                   "UPDATE job SET processing = 1, holder_pid = :pid, holder_start = :start"
                   " WHERE id = :id AND verified = 0 AND failed = 0 AND processing = 0 AND due <= :now")
               .With(process.pid)
               .With(process.start)
               .With(id)
               .With(now)
               .Run() == 1;
}

void Remove(Transaction& transaction, int id) {
    accounts::SetOfJob(transaction, id, {});
    transaction.Prepare("DELETE FROM job WHERE id = :id").With(id).Run();
}

}  // namespace zelvek::jobs
