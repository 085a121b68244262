#include "zelvek/store/answered.h"

namespace zelvek::answered {

void Put(Transaction& transaction, const std::string& identity, const std::string& answer,
         const std::string& time) {
    transaction
        .Prepare("INSERT INTO answered_query (identity, answer, time) VALUES (:identity, :answer, :time)")
        .With(identity)
        .With(answer)
        .With(time)
        .Run();
}

std::optional<std::string> Find(Transaction& transaction, const std::string& identity) {
    std::string answer;
    Statement select = transaction.Prepare("SELECT answer FROM answered_query WHERE identity = :identity");
    if (!select.With(identity).Into(answer).Next()) return std::nullopt;
    return answer;
}

long long RemoveOlder(Transaction& transaction, const std::string& time, int limit) {
    return transaction
        .Prepare(
            "DELETE FROM answered_query WHERE identity IN"
            " (SELECT identity FROM answered_query WHERE time < :time ORDER BY time, identity LIMIT :most)")
        .With(time)
        .With(limit)
        .Run();
}

}  // namespace zelvek::answered
