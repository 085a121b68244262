#include "zelvek/store/page_deeds.h"

namespace zelvek::page_deeds {

void Add(Transaction& transaction, const Deed& deed) {
    transaction.Prepare("INSERT INTO page_deed (time, who, what) VALUES (:time, :who, :what)")
        .With(deed.time)
        .With(deed.who)
        .With(deed.what)
        .Run();
}

std::vector<Deed> Newest(Transaction& transaction, long long before, int limit) {
    Statement select = transaction.Prepare(
        "SELECT number, time, who, what FROM page_deed WHERE number < :before ORDER BY number DESC LIMIT "
        ":most");
    Deed deed;
    select.With(before).With(limit).Into(deed.number).Into(deed.time).Into(deed.who).Into(deed.what);
    std::vector<Deed> found;
    while (select.Next()) found.push_back(deed);
    return found;
}

void RemoveOlder(Transaction& transaction, const std::string& time, int limit) {
    transaction
        .Prepare(
            "DELETE FROM page_deed WHERE number IN"
            " (SELECT number FROM page_deed WHERE time < :time ORDER BY time, number LIMIT :most)")
        .With(time)
        .With(limit)
        .Run();
}

}  // namespace zelvek::page_deeds
