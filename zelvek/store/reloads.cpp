#include "zelvek/store/reloads.h"

namespace zelvek::reloads {

namespace {

constexpr const char* kSelect =
    "SELECT user_name, certname, directory, since, failures, next, reason FROM reload ";

std::vector<Reload> Read(Statement& select) {
    std::vector<Reload> found;
    Reload reload;
    select.Into(reload.user_name).Into(reload.certname).Into(reload.directory).Into(reload.since);
    select.Into(reload.failures).Into(reload.next).Into(reload.reason);
    while (select.Next()) found.push_back(reload);
    return found;
}

}  // namespace

void Expect(Transaction& transaction, const Reload& reload) {
    transaction
        .Prepare(
            "INSERT INTO reload (user_name, certname, directory, since, failures, next, reason)"
            " VALUES (:user, :certname, :directory, :since, 0, :next, '')"
            " ON CONFLICT (user_name, certname) DO UPDATE SET directory = excluded.directory,"
            " next = excluded.next")
        .With(reload.user_name)
        .With(reload.certname)
        .With(reload.directory)
        .With(reload.since)
        .With(reload.next)
        .Run();
}

void SetFailed(Transaction& transaction, const Reload& reload, const std::string& next,
               const std::string& reason) {
    transaction
        .Prepare(
            "UPDATE reload SET failures = failures + 1, next = :next, reason = :reason"
            " WHERE user_name = :user AND certname = :certname")
        .With(next)
        .With(reason)
        .With(reload.user_name)
        .With(reload.certname)
        .Run();
}

void Finish(Transaction& transaction, const std::string& user, const std::string& certname) {
    transaction.Prepare("DELETE FROM reload WHERE user_name = :user AND certname = :certname")
        .With(user)
        .With(certname)
        .Run();
}

std::optional<Reload> Find(Transaction& transaction, const std::string& user, const std::string& certname) {
    Statement select =
        transaction.Prepare(std::string(kSelect) + "WHERE user_name = :user AND certname = :certname");
    const auto found = Read(select.With(user).With(certname));
    if (found.empty()) return std::nullopt;
    return found.front();
}

std::vector<Reload> Due(Transaction& transaction, const std::string& now, const std::string& latest,
                        int limit) {
    Statement due =
        transaction.Prepare(std::string(kSelect) + "WHERE next <= :now ORDER BY next LIMIT :limit");
    std::vector<Reload> found = Read(due.With(now).With(limit));
    Statement late =
        transaction.Prepare(std::string(kSelect) + "WHERE next > :latest ORDER BY next LIMIT :limit");
    const std::vector<Reload> lost = Read(late.With(latest).With(limit - static_cast<int>(found.size())));
    found.insert(found.end(), lost.begin(), lost.end());
    return found;
}

}  // namespace zelvek::reloads
