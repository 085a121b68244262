#include "zelvek/store/deliveries.h"

namespace zelvek::deliveries {

namespace {

void SetEntries(Transaction& transaction, const std::string& recipient, const std::string& digest,
                const std::string& new_digest) {
    transaction.Prepare("UPDATE delivery SET digest = :new WHERE recipient = :recipient AND digest = :digest")
        .With(new_digest)
        .With(recipient)
        .With(digest)
        .Run();
}

long long RemoveEntries(Transaction& transaction, const std::string& recipient, const std::string& digest) {
    return transaction.Prepare("DELETE FROM delivery WHERE recipient = :recipient AND digest = :digest")
        .With(recipient)
        .With(digest)
        .Run();
}

/// After a delivery that failed.
void Pause(Transaction& transaction, const std::string& recipient, const std::string& digest,
           const std::string& next) {
    transaction
        .Prepare(
            "UPDATE recipient SET digest = :digest, handed = 0, failures = failures + 1, next = :next"
            " WHERE name = :name")
        .With(digest)
        .With(next)
        .With(recipient)
        .Run();
}

void Add(Transaction& transaction, long long problem, const std::string& recipient) {
    transaction
        .Prepare(
            "INSERT INTO delivery (problem, recipient, digest) SELECT :problem, :recipient, '' WHERE NOT "
            "EXISTS"
            " (SELECT 1 FROM delivery WHERE problem = :same AND recipient = :his AND digest = '')")
        .With(problem)
        .With(recipient)
        .With(problem)
        .With(recipient)
        .Run();
}

std::vector<Recipient> ReadRecipients(Statement& select) {
    std::vector<Recipient> found;
    Recipient recipient;
    select.Into(recipient.name).Into(recipient.next).Into(recipient.failures).Into(recipient.digest);
    select.Into(recipient.doubtful);
    while (select.Next()) found.push_back(recipient);
    return found;
}

constexpr const char* kRecipients = "SELECT name, next, failures, digest, doubtful FROM recipient WHERE ";

}  // namespace

void Queue(Transaction& transaction, long long problem) { Add(transaction, problem, ""); }

std::vector<Entry> Unrouted(Transaction& transaction, const std::string& route, int limit) {
    std::vector<Entry> found;
    Entry entry;
    Statement select = transaction.Prepare(
        "SELECT delivery.id, delivery.problem, problem.owner FROM delivery"
        " JOIN problem ON problem.number = delivery.problem"
        " WHERE delivery.recipient = :route AND delivery.digest = '' ORDER BY delivery.id LIMIT :most");
    select.With(route).With(limit).Into(entry.id).Into(entry.problem).Into(entry.owner);
    while (select.Next()) found.push_back(entry);
    return found;
}

void Route(Transaction& transaction, const Entry& entry, const std::vector<std::string>& recipients,
           const std::string& next) {
    transaction.Prepare("DELETE FROM delivery WHERE id = :id").With(entry.id).Run();
    for (const std::string& recipient : recipients) {
        Add(transaction, entry.problem, recipient);
        transaction
            .Prepare(
                "INSERT INTO recipient (name, next, failures, digest, handed, doubtful)"
                " VALUES (:name, :next, 0, '', 0, 0) ON CONFLICT (name) DO UPDATE"
                " SET next = excluded.next WHERE recipient.next = ''")
            .With(recipient)
            .With(next)
            .Run();
    }
}

void Reroute(Transaction& transaction, const std::string& route) {
    transaction
        .Prepare(
            "UPDATE delivery SET recipient = :route WHERE recipient > :after AND recipient < :end"
            " AND digest = ''")
        .With(route)
        .With(route)
        .With(route + "\xf4\x8f\xbf\xbf")  // the last character there is
        .Run();
}

std::vector<Recipient> Due(Transaction& transaction, const std::string& now, const std::string& latest,
                           int limit) {
    Statement due = transaction.Prepare(std::string(kRecipients) +
                                        "next > '' AND next <= :now ORDER BY next LIMIT :limit");
    std::vector<Recipient> found = ReadRecipients(due.With(now).With(limit));
    Statement late =
        transaction.Prepare(std::string(kRecipients) + "next > :latest ORDER BY next LIMIT :limit");
    const std::vector<Recipient> lost =
        ReadRecipients(late.With(latest).With(limit - static_cast<int>(found.size())));
    found.insert(found.end(), lost.begin(), lost.end());
    return found;
}

std::string Begin(Transaction& transaction, const Recipient& recipient, const std::string& attempt,
                  int most) {
    if (!recipient.digest.empty()) return recipient.digest;
    const long long count =
        transaction
            .Prepare(
                "UPDATE delivery SET digest = :attempt WHERE id IN (SELECT id FROM delivery"
                " WHERE recipient = :recipient AND digest = '' ORDER BY id LIMIT :most)")
            .With(attempt)
            .With(recipient.name)
            .With(most)
            .Run();
    if (count == 0) {
        transaction.Prepare("DELETE FROM recipient WHERE name = :name AND doubtful = 0")
            .With(recipient.name)
            .Run();
        transaction.Prepare("UPDATE recipient SET next = '' WHERE name = :name").With(recipient.name).Run();
        return "";
    }
    transaction.Prepare("UPDATE recipient SET digest = :attempt, handed = 0 WHERE name = :name")
        .With(attempt)
        .With(recipient.name)
        .Run();
    return attempt;
}

std::vector<long long> ProblemsOf(Transaction& transaction, const std::string& recipient,
                                  const std::string& digest) {
    std::vector<long long> found;
    long long problem = 0;
    Statement select = transaction.Prepare(
        "SELECT problem FROM delivery WHERE recipient = :recipient AND digest = :digest ORDER BY id");
    select.With(recipient).With(digest).Into(problem);
    while (select.Next()) found.push_back(problem);
    return found;
}

void SetHanded(Transaction& transaction, const std::string& recipient) {
    transaction.Prepare("UPDATE recipient SET handed = 1 WHERE name = :name").With(recipient).Run();
}

void Finish(Transaction& transaction, const Recipient& recipient, const std::string& next) {
    RemoveEntries(transaction, recipient.name, recipient.digest);
    transaction
        .Prepare(
            "UPDATE recipient SET digest = '', handed = 0, failures = 0, doubtful = 0, next = :next"
            " WHERE name = :name")
        .With(next)
        .With(recipient.name)
        .Run();
}

void Postpone(Transaction& transaction, const Recipient& recipient, const std::string& next) {
    SetEntries(transaction, recipient.name, recipient.digest, "");
    Pause(transaction, recipient.name, "", next);
}

void Repeat(Transaction& transaction, const Recipient& recipient, const std::string& next) {
    Pause(transaction, recipient.name, recipient.digest, next);
}

std::vector<std::string> GiveUpInterrupted(Transaction& transaction) {
    std::vector<Recipient> interrupted;
    {
        Statement select = transaction.Prepare(std::string(kRecipients) + "handed = 1 ORDER BY name");
        interrupted = ReadRecipients(select);
    }
    std::vector<std::string> names;
    for (const Recipient& recipient : interrupted) {
        const long long count = RemoveEntries(transaction, recipient.name, recipient.digest);
        transaction
            .Prepare(
                "UPDATE recipient SET digest = '', handed = 0, doubtful = doubtful + :count WHERE name = "
                ":name")
            .With(count)
            .With(recipient.name)
            .Run();
        names.push_back(recipient.name);
    }
    return names;
}

}  // namespace zelvek::deliveries
