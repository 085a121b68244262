#include "zelvek/store/requests.h"

#include <utility>
#include <vector>

namespace zelvek::requests {

namespace {

/// A request's name and its maker.
using Made = std::pair<std::string, Process>;

std::vector<Made> ReadMade(Statement& select) {
    std::vector<Made> made;
    Made one;
    select.Into(one.first).Into(one.second.pid).Into(one.second.start);
    while (select.Next()) made.push_back(one);
    return made;
}

std::vector<Made> MadeFor(Transaction& transaction, const std::string& name) {
    Statement select = transaction.Prepare("SELECT name, pid, start FROM csr WHERE name = :name");
    return ReadMade(select.With(name));
}

std::vector<Made> MadeBefore(Transaction& transaction, const std::string& time) {
    Statement select = transaction.Prepare("SELECT name, pid, start FROM csr WHERE time <= :time");
    return ReadMade(select.With(time));
}

void RemoveMade(Transaction& transaction, const Made& made) {
    transaction.NoteDeletedKey();
    transaction.Prepare("DELETE FROM csr WHERE name = :name AND pid = :pid AND start = :start")
        .With(made.first)
        .With(made.second.pid)
        .With(made.second.start)
        .Run();
}

}  // namespace

void Put(Transaction& transaction, const std::string& name, const Process& maker, const Stored& request,
         const std::string& time) {
    Remove(transaction, name, maker);
    // The id of a process may stand there from before the machine's last start.
    transaction
        .Prepare(
            "INSERT INTO csr (name, pid, start, time, request, key)"
            " VALUES (:name, :pid, :start, :time, :request, :key)"
            " ON CONFLICT (name, pid) DO UPDATE SET start = excluded.start, time = excluded.time,"
            " request = excluded.request, key = excluded.key")
        .With(name)
        .With(maker.pid)
        .With(maker.start)
        .With(time)
        .With(request.request)
        .With(request.key)
        .Run();
}

std::optional<Stored> Find(Transaction& transaction, const std::string& name, const Process& asker) {
    Stored found;
    Statement select = transaction.Prepare(
        "SELECT request, key FROM csr WHERE name = :name AND pid = :pid AND start = :start");
    select.With(name).With(asker.pid).With(asker.start).Into(found.request).Into(found.key);
    if (!select.Next()) return std::nullopt;
    return found;
}

void Remove(Transaction& transaction, const std::string& name, const Process& asker) {
    for (const Made& made : MadeFor(transaction, name)) {
        if (made.second == asker || !Alive(made.second)) RemoveMade(transaction, made);
    }
}

void RemoveLeft(Transaction& transaction, const std::string& time) {
    for (const Made& made : MadeBefore(transaction, time)) {
        if (!Alive(made.second)) RemoveMade(transaction, made);
    }
}

}  // namespace zelvek::requests
