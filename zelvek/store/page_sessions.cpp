#include "zelvek/store/page_sessions.h"

namespace zelvek::page_sessions {

namespace {

const char* WordOf(Kind kind) { return kind == Kind::kLink ? "link" : "session"; }

std::vector<Session> Select(Statement& select, Kind kind) {
    Session session;
    session.kind = kind;
    select.Into(session.number).Into(session.hash).Into(session.user_name);
    select.Into(session.began).Into(session.seen).Into(session.agent);
    std::vector<Session> found;
    while (select.Next()) found.push_back(session);
    return found;
}

const std::string kSelect = "SELECT number, hash, user_name, began, seen, agent FROM page_session ";

}  // namespace

long long Add(Transaction& transaction, const Session& session) {
    long long number = 0;
    transaction
        .Prepare(
            "INSERT INTO page_session (kind, hash, user_name, began, seen, agent)"
            " VALUES (:kind, :hash, :user, :began, :seen, :agent) RETURNING number")
        .With(WordOf(session.kind))
        .With(session.hash)
        .With(session.user_name)
        .With(session.began)
        .With(session.seen)
        .With(session.agent)
        .Into(number)
        .Next();
    return number;
}

std::optional<Session> Find(Transaction& transaction, Kind kind, long long number) {
    Statement select = transaction.Prepare(kSelect + "WHERE number = :number AND kind = :kind");
    select.With(number).With(WordOf(kind));
    const std::vector<Session> found = Select(select, kind);
    if (found.empty()) return std::nullopt;
    return found.front();
}

std::vector<Session> List(Transaction& transaction, Kind kind, long long after, int limit) {
    Statement select =
        transaction.Prepare(kSelect + "WHERE kind = :kind AND number > :after ORDER BY number LIMIT :most");
    select.With(WordOf(kind)).With(after).With(limit);
    return Select(select, kind);
}

void SetSeen(Transaction& transaction, long long number, const std::string& time) {
    transaction.Prepare("UPDATE page_session SET seen = :time WHERE number = :number")
        .With(time)
        .With(number)
        .Run();
}

bool Remove(Transaction& transaction, Kind kind, long long number) {
    return transaction.Prepare("DELETE FROM page_session WHERE number = :number AND kind = :kind")
               .With(number)
               .With(WordOf(kind))
               .Run() == 1;
}

long long RemoveAll(Transaction& transaction, Kind kind) {
    return transaction.Prepare("DELETE FROM page_session WHERE kind = :kind").With(WordOf(kind)).Run();
}

void RemoveOlder(Transaction& transaction, Kind kind, const std::string& began, const std::string& seen) {
    transaction.Prepare("DELETE FROM page_session WHERE kind = :kind AND (began < :began OR seen < :seen)")
        .With(WordOf(kind))
        .With(began)
        .With(seen)
        .Run();
}

}  // namespace zelvek::page_sessions
