#include "zelvek/store/jobs.h"

#include <functional>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/store/accounts.h"
#include "zelvek/store/job_names.h"

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

}  // namespace

Error NoSuchJob(int id) {
    return {Code::kMissed, "ambrin.data", str::Str(id), "there is no job " + str::Str(id)};
}

namespace {

Job FindWith(Transaction& transaction, int id, const Fields& fields, const std::string& select) {
    Statement statement = transaction.Prepare(select);
    const std::vector<Job> found = Read(statement.With(id), fields);
    if (found.empty()) {
        throw NoSuchJob(id);
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

std::string UpdateText(const Fields& fields) {
    std::string changes;
    for (const JobField& field : fields) {
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

/// Each state has an index of its own, so that a page of a few jobs among many does not read all of them.
std::string Condition(State state) {
    switch (state) {
        case State::kVerified: return " AND job.verified = 1 AND job.paused = 0";
        case State::kFailed: return " AND job.failed = 1 AND job.verified = 0 AND job.paused = 0";
        case State::kRunning:
            return " AND job.processing = 1 AND job.verified = 0 AND job.failed = 0 AND job.paused = 0";
        case State::kWaiting:
            return " AND job.verified = 0 AND job.failed = 0 AND job.processing = 0 AND job.paused = 0";
        case State::kPaused: return " AND job.paused = 1";
        case State::kAny: break;
    }
    return "";
}

}  // namespace

int Add(Transaction& transaction, const Job& job) {
    static const std::string text = InsertText();
    Statement insert = transaction.Prepare(text);
    Give(insert, job, NewFields());
    transaction.NoteDue(job.due);
    int id = 0;
    insert.Into(id).Next();
    job_names::Set(transaction, id, job.aliases);
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
                .With(names::ComparedFolderIfAny(job.certname))
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
    const std::string condition =
        of_user + "job.id > :after" + Condition(selection.state) + " ORDER BY job.id LIMIT :most";
    return Select(transaction, condition, [&](Statement& select) {
        if (!of_user.empty()) select.With(selection.user_name);
        select.With(selection.after).With(selection.limit);
    });
}

std::vector<Job> Select(Transaction& transaction, const std::string& condition,
                        const std::function<void(Statement&)>& give) {
    Statement select = transaction.Prepare(SelectText(ShownFields()) + "WHERE " + condition);
    give(select);
    return Read(select, ShownFields());
}

void Save(Transaction& transaction, const Job& job) {
    static const std::string text = UpdateText(ChangingFields());
    Statement update = transaction.Prepare(text);
    Give(update, job, ChangingFields());
    update.With(job.id).Run();
    transaction.NoteDue(job.verified ? job.renew : job.due);
    accounts::SetOfJob(transaction, job.id, {job.kid, job.acmekey, job.modulus});
}

void Edit(Transaction& transaction, const Job& job) {
    static const Fields fields = FieldsWith([](const JobField& field) {
        return field.writer == JobField::Writer::kPanel && field.key != std::string("time_started");
    });
    static const std::string text = UpdateText(fields);
    const bool moved = FindShown(transaction, job.id).authority != job.authority;
    Statement update = transaction.Prepare(text);
    Give(update, job, fields);
    update.With(job.id).Run();
    // No other authority knows the account.
    if (moved) accounts::SetOfJob(transaction, job.id, {});
    job_names::Set(transaction, job.id, job.aliases);
}

std::vector<Job> Running(Transaction& transaction) {
    static const std::string text = SelectText(ShownFields()) + "WHERE job.processing = 1 ORDER BY job.id";
    Statement select = transaction.Prepare(text);
    return Read(select, ShownFields());
}

void SetRefusal(Transaction& transaction, int id, const std::string& sentence) {
    transaction.Prepare("UPDATE job SET refusal = :refusal WHERE id = :id").With(sentence).With(id).Run();
}

std::vector<Job> NoticeDue(Transaction& transaction, const std::string& now, int limit) {
    std::vector<Job> found;
    Job job;
    Statement select = transaction.Prepare(
        "SELECT id, certname, user_name, folder, res_name, refusal, expires, renew, verified, failed,"
        " failures, notice_step, notice_due FROM job WHERE notice_due > '' AND notice_due <= :now"
        " ORDER BY notice_due, id LIMIT :most");
    select.With(now).With(limit);
    select.Into(job.id).Into(job.certname).Into(job.user_name).Into(job.folder).Into(job.res_name);
    select.Into(job.refusal).Into(job.expires).Into(job.renew).Into(job.verified).Into(job.failed);
    select.Into(job.failures).Into(job.notice_step).Into(job.notice_due);
    while (select.Next()) found.push_back(job);
    return found;
}

void SetNotice(Transaction& transaction, const Job& job) {
    transaction.Prepare("UPDATE job SET notice_step = :step, notice_due = :due WHERE id = :id")
        .With(job.notice_step)
        .With(job.notice_due)
        .With(job.id)
        .Run();
}

void Remove(Transaction& transaction, int id) {
    accounts::SetOfJob(transaction, id, {});
    transaction.Prepare("DELETE FROM job WHERE id = :id").With(id).Run();
}

}  // namespace zelvek::jobs
