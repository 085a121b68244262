#include "zelvek/store/usage.h"

namespace zelvek::usage {

namespace {

/// As the database has it.
std::string Word(Kind kind) { return kind == Kind::kOrder ? "order" : "failure"; }

}  // namespace

void Note(Transaction& transaction, int job, const Use& use) {
    transaction
        .Prepare(
            "INSERT INTO authority_use (kind, subject, time, job, open)"
            " VALUES (:kind, :subject, :time, :job, :open)")
        .With(Word(use.kind))
        .With(use.subject)
        .With(use.time)
        .With(job)
        .With(use.open)
        .Run();
}

void DropOpen(Transaction& transaction, int job) {
    transaction.Prepare("DELETE FROM authority_use WHERE job = :job AND open = 1").With(job).Run();
}

void CountOpen(Transaction& transaction, int job, Kind kind) {
    transaction.Prepare("UPDATE authority_use SET open = 0 WHERE job = :job AND open = 1 AND kind = :kind")
        .With(job)
        .With(Word(kind))
        .Run();
}

std::optional<std::string> TimeOf(Transaction& transaction, Kind kind, const std::string& subject,
                                  const std::string& since, int newer) {
    std::string time;
    Statement select = transaction.Prepare(
        "SELECT time FROM authority_use WHERE kind = :kind AND subject = :subject AND time > :since"
        " ORDER BY time DESC LIMIT 1 OFFSET :newer");
    if (!select.With(Word(kind)).With(subject).With(since).With(newer).Into(time).Next()) return std::nullopt;
    return time;
}

int CountSince(Transaction& transaction, Kind kind, const std::string& subject, const std::string& since,
               int most) {
    Statement select = transaction.Prepare(
        "SELECT open FROM authority_use WHERE kind = :kind AND subject = :subject AND time > :since LIMIT "
        ":most");
    return static_cast<int>(select.With(Word(kind)).With(subject).With(since).With(most).Numbers().size());
}

void RemoveOlder(Transaction& transaction, const std::string& time, int limit) {
    transaction
        .Prepare(
            "DELETE FROM authority_use WHERE id IN"
            " (SELECT id FROM authority_use WHERE time < :time ORDER BY time, id LIMIT :limit)")
        .With(time)
        .With(limit)
        .Run();
}

}  // namespace zelvek::usage
