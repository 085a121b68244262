#include "zelvek/store/publications.h"

#include <algorithm>

namespace zelvek::publications {

namespace {

const std::string kSelect =
    "SELECT id, zone, name, value, user_name, job, pid, start, kept, unwanted, missing, found,"
    " withdrawn_pid, withdrawn_start"
    " FROM publication ";

std::vector<Publication> Read(Statement& select) {
    std::vector<Publication> found;
    Publication entry;
    select.Into(entry.id).Into(entry.item.zone).Into(entry.item.name).Into(entry.item.value);
    select.Into(entry.user_name).Into(entry.job).Into(entry.publisher.pid).Into(entry.publisher.start);
    select.Into(entry.kept).Into(entry.unwanted).Into(entry.missing).Into(entry.found);
    select.Into(entry.withdrawer.pid).Into(entry.withdrawer.start);
    while (select.Next()) found.push_back(entry);
    return found;
}

/// All entries that a condition without values holds for, or those of one job.
std::vector<Publication> Select(Transaction& transaction, const std::string& condition,
                                std::optional<int> job) {
    Statement select =
        transaction.Prepare(kSelect + "WHERE " + condition + (job ? " AND job = :job" : "") + " ORDER BY id");
    if (job) select.With(*job);
    return Read(select);
}

void MarkUnwanted(Transaction& transaction, long long id) {
    transaction.Prepare("UPDATE publication SET unwanted = 1 WHERE id = :id").With(id).Run();
}

}  // namespace

std::optional<Publication> Put(Transaction& transaction, const Publication& publication) {
    const auto entries = Of(transaction, publication.item);
    const auto before = std::find_if(entries.begin(), entries.end(),
                                     [&](const Publication& entry) { return entry.job == publication.job; });
    Publication entry = publication;
    // What an earlier run of the job was written back with stays the job's, whatever becomes of this run.
    entry.kept = before != entries.end() && before->kept && !before->unwanted;
    Restore(transaction, entry);
    return before == entries.end() ? std::nullopt : std::optional(*before);
}

void Restore(Transaction& transaction, const Publication& publication) {
    transaction
        .Prepare(
            "INSERT INTO publication (zone, name, value, user_name, job, pid, start, kept, unwanted, missing,"
            " found, withdrawn_pid, withdrawn_start) VALUES (:zone, :name, :value, :user, :job, :pid, :start,"
            " :kept, :unwanted, :missing, :found, :withdrawn_pid, :withdrawn_start)"
            " ON CONFLICT (zone, name, value, job) DO UPDATE SET user_name = excluded.user_name,"
            " pid = excluded.pid, start = excluded.start, kept = excluded.kept, unwanted = excluded.unwanted,"
            " missing = excluded.missing, found = excluded.found, withdrawn_pid = excluded.withdrawn_pid,"
            " withdrawn_start = excluded.withdrawn_start")
        .With(publication.item.zone)
        .With(publication.item.name)
        .With(publication.item.value)
        .With(publication.user_name)
        .With(publication.job)
        .With(publication.publisher.pid)
        .With(publication.publisher.start)
        .With(publication.kept)
        .With(publication.unwanted)
        .With(publication.missing)
        .With(publication.found)
        .With(publication.withdrawer.pid)
        .With(publication.withdrawer.start)
        .Run();
}

void Drop(Transaction& transaction, const PublishedItem& item, int job) {
    transaction
        .Prepare(
            "DELETE FROM publication WHERE zone = :zone AND name = :name AND value = :value AND job = :job")
        .With(item.zone)
        .With(item.name)
        .With(item.value)
        .With(job)
        .Run();
}

std::vector<Publication> Of(Transaction& transaction, const PublishedItem& item) {
    Statement select =
        transaction.Prepare(kSelect + "WHERE zone = :zone AND name = :name AND value = :value");
    return Read(select.With(item.zone).With(item.name).With(item.value));
}

std::vector<Publication> OfJob(Transaction& transaction, int job) {
    Statement select = transaction.Prepare(kSelect + "WHERE job = :job AND unwanted = 0 ORDER BY id");
    return Read(select.With(job));
}

std::vector<Publication> RecordsOf(Transaction& transaction, const std::string& user, const std::string& name,
                                   const std::string& value) {
    Statement select = transaction.Prepare(
        kSelect + "WHERE user_name = :user AND name = :name AND value = :value AND zone <> ''");
    return Read(select.With(user).With(name).With(value));
}

void SetUnwanted(Transaction& transaction, int job) {
    transaction.Prepare("UPDATE publication SET unwanted = 1 WHERE job = :job").With(job).Run();
}

bool Withdraw(Transaction& transaction, const PublishedItem& item, int job, const Process& withdrawer) {
    return transaction
               .Prepare(
                   "UPDATE publication SET withdrawn_pid = :pid, withdrawn_start = :start, found = 0"
                   " WHERE zone = :zone AND name = :name AND value = :value AND job = :job")
               .With(withdrawer.pid)
               .With(withdrawer.start)
               .With(item.zone)
               .With(item.name)
               .With(item.value)
               .With(job)
               .Run() > 0;
}

long long Keep(Transaction& transaction, int job, const Process& writer) {
    transaction
        .Prepare(
            "UPDATE publication SET unwanted = 1"
            " WHERE job = :job AND withdrawn_pid = :pid AND withdrawn_start = :start")
        .With(job)
        .With(writer.pid)
        .With(writer.start)
        .Run();
    return transaction.Prepare("UPDATE publication SET kept = 1 WHERE job = :job AND unwanted = 0")
        .With(job)
        .Run();
}

void SetMissing(Transaction& transaction, const PublishedItem& item, bool missing) {
    transaction
        .Prepare(
            "UPDATE publication SET missing = :missing WHERE zone = :zone AND name = :name AND value = "
            ":value")
        .With(missing)
        .With(item.zone)
        .With(item.name)
        .With(item.value)
        .Run();
}

void SetSeenByAll(Transaction& transaction, const PublishedItem& item, const std::string& time) {
    transaction
        .Prepare(
            "UPDATE publication SET seen_by_all = :time WHERE zone = :zone AND name = :name AND value = "
            ":value")
        .With(time)
        .With(item.zone)
        .With(item.name)
        .With(item.value)
        .Run();
}

std::string SeenByAll(Transaction& transaction, int job) {
    std::string time;
    Statement select = transaction.Prepare(
        "SELECT coalesce(max(seen_by_all), '') FROM publication WHERE job = :job AND unwanted = 0");
    select.With(job).Into(time).Next();
    return time;
}

void SetFound(Transaction& transaction, const PublishedItem& item) {
    transaction
        .Prepare("UPDATE publication SET found = 1 WHERE zone = :zone AND name = :name AND value = :value")
        .With(item.zone)
        .With(item.name)
        .With(item.value)
        .Run();
}

std::vector<Publication> Missing(Transaction& transaction, long long after, int limit) {
    Statement select = transaction.Prepare(
        kSelect + "WHERE missing = 1 AND unwanted = 0 AND id > :after ORDER BY id LIMIT :most");
    return Read(select.With(after).With(limit));
}

std::vector<Publication> TakeUnwanted(Transaction& transaction, std::optional<int> job) {
    for (const Publication& entry : Select(transaction, "kept = 0 AND unwanted = 0", job)) {
        if (!Alive(entry.publisher)) MarkUnwanted(transaction, entry.id);
    }
    return Select(transaction, "unwanted = 1", job);
}

}  // namespace zelvek::publications
