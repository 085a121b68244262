#include "zelvek/store/served.h"

#include <array>

namespace zelvek::served {

namespace {

constexpr std::array kWords{"served", "older", "unreachable"};  // by the states' numbers

State StateOf(const std::string& word) {
    for (std::size_t i = 0; i < kWords.size(); ++i) {
        if (kWords[i] == word) return static_cast<State>(i);
    }
    return State::kUnreachable;
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
        .With(kWords.at(static_cast<std::size_t>(served.state)))
        .With(served.time)
        .With(served.detail)
        .Run();
}

std::optional<Served> Find(Transaction& transaction, const std::string& user, const std::string& folder) {
    Served served;
    std::string word;
    Statement select = transaction.Prepare(
        "SELECT state, time, detail FROM served WHERE user_name = :user AND folder = :folder");
    select.With(user).With(folder).Into(word).Into(served.time).Into(served.detail);
    if (!select.Next()) return std::nullopt;
    served.state = StateOf(word);
    return served;
}

void Forget(Transaction& transaction, const std::string& user, const std::string& folder) {
    transaction.Prepare("DELETE FROM served WHERE user_name = :user AND folder = :folder")
        .With(user)
        .With(folder)
        .Run();
}

}  // namespace zelvek::served
