#include "zelvek/store/served.h"

namespace zelvek::served {

namespace {

std::vector<Check> Select(Transaction& transaction, const std::string& condition, const std::string& time,
                          int limit) {
    std::vector<Check> found;
    Check check;
    Statement select = transaction.Prepare(
        "SELECT user_name, folder, certname, directory, since, next, looks FROM site_check WHERE " +
        condition + " ORDER BY next LIMIT :limit");
    select.With(time).With(limit).Into(check.user_name).Into(check.folder).Into(check.certname);
    select.Into(check.directory).Into(check.since).Into(check.next).Into(check.looks);
    while (select.Next()) found.push_back(check);
    return found;
}

}  // namespace

void Set(Transaction& transaction, const std::string& user, const std::string& folder, const Served& served) {
    transaction
        .Prepare(
            "INSERT INTO served (user_name, folder, state, time, detail)"
            " VALUES (:user, :folder, :state, :time, :detail)"
            " ON CONFLICT (user_name, folder) DO UPDATE SET state = excluded.state, time = excluded.time,"
            " detail = excluded.detail")
        .With(user)
        .With(folder)
        .With(served.state)
        .With(served.time)
        .With(served.detail)
        .Run();
}

std::optional<Served> Find(Transaction& transaction, const std::string& user, const std::string& folder) {
    Served served;
    Statement select = transaction.Prepare(
        "SELECT state, time, detail FROM served WHERE user_name = :user AND folder = :folder");
    select.With(user).With(folder).Into(served.state).Into(served.time).Into(served.detail);
    if (!select.Next()) return std::nullopt;
    return served;
}

void Expect(Transaction& transaction, const Check& check) {
    Forget(transaction, check.user_name, check.folder);
    transaction
        .Prepare(
            "INSERT INTO site_check (user_name, folder, certname, directory, since, next, looks)"
            " VALUES (:user, :folder, :certname, :directory, :since, :next, 0)")
        .With(check.user_name)
        .With(check.folder)
        .With(check.certname)
        .With(check.directory)
        .With(check.since)
        .With(check.next)
        .Run();
}

bool IsExpected(Transaction& transaction, const Check& check) {
    int looks = 0;
    Statement select = transaction.Prepare(
        "SELECT looks FROM site_check WHERE user_name = :user AND folder = :folder AND since = :since");
    select.With(check.user_name).With(check.folder).With(check.since).Into(looks);
    return select.Next();
}

void Postpone(Transaction& transaction, const Check& check, const std::string& next) {
    transaction
        .Prepare(
            "UPDATE site_check SET looks = looks + 1, next = :next"
            " WHERE user_name = :user AND folder = :folder")
        .With(next)
        .With(check.user_name)
        .With(check.folder)
        .Run();
}

void Finish(Transaction& transaction, const std::string& user, const std::string& folder) {
    transaction.Prepare("DELETE FROM site_check WHERE user_name = :user AND folder = :folder")
        .With(user)
        .With(folder)
        .Run();
}

std::vector<Check> Due(Transaction& transaction, const std::string& now, const std::string& latest,
                       int limit) {
    std::vector<Check> found = Select(transaction, "next <= :now", now, limit);
    const auto lost = Select(transaction, "next > :latest", latest, limit - static_cast<int>(found.size()));
    found.insert(found.end(), lost.begin(), lost.end());
    return found;
}

void Forget(Transaction& transaction, const std::string& user, const std::string& folder) {
    Finish(transaction, user, folder);
    transaction.Prepare("DELETE FROM served WHERE user_name = :user AND folder = :folder")
        .With(user)
        .With(folder)
        .Run();
}

}  // namespace zelvek::served
