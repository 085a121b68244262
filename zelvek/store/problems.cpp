#include "zelvek/store/problems.h"

#include "vek/str.h"
#include "zelvek/base/happening.h"
#include "zelvek/store/deliveries.h"

namespace zelvek::problems {

namespace {

std::vector<std::pair<std::string, std::string>> ParametersOf(Transaction& transaction, long long number) {
    std::vector<std::pair<std::string, std::string>> parameters;
    std::pair<std::string, std::string> parameter;
    Statement select = transaction.Prepare(
        "SELECT name, value FROM problem_parameter WHERE problem = :number ORDER BY name");
    select.With(number).Into(parameter.first).Into(parameter.second);
    while (select.Next()) parameters.push_back(parameter);
    return parameters;
}

constexpr std::size_t kIdBytes = 8;

bool IsThere(Transaction& transaction, const std::string& id) {
    long long number = 0;
    return transaction.Prepare("SELECT number FROM problem WHERE id = :id").With(id).Into(number).Next();
}

void SetParameters(Transaction& transaction, long long number, const Problem& problem) {
    transaction.Prepare("DELETE FROM problem_parameter WHERE problem = :number").With(number).Run();
    for (const auto& [name, value] : problem.parameters) {
        transaction
            .Prepare("INSERT INTO problem_parameter (problem, name, value) VALUES (:problem, :name, :value)")
            .With(number)
            .With(name)
            .With(value)
            .Run();
    }
}

/// 0 where none of its cause is open.
long long OpenOne(Transaction& transaction, const Problem& problem) {
    long long number = 0;
    Statement select = transaction.Prepare(
        "SELECT number FROM problem WHERE user_name = :user AND about = :about AND name = :name"
        " AND owner = :owner AND unsolved = 1");
    select.With(problem.user).With(problem.about).With(problem.name).With(problem.owner).Into(number);
    return select.Next() ? number : 0;
}

void Repeat(Transaction& transaction, long long number, const Problem& problem) {
    transaction
        .Prepare(
            "UPDATE problem SET id = :id, level = :level, time = :time, times = times + 1,"
            " state = CASE WHEN :again = 1 THEN 'raised' ELSE state END WHERE number = :number")
        .With(problem.id)
        .With(problem.level)
        .With(problem.time)
        .With(problem.tell_again)
        .With(number)
        .Run();
    SetParameters(transaction, number, problem);
}

/// Returns its number.
long long Insert(Transaction& transaction, const Problem& problem) {
    long long number = 0;
    {
        Statement insert = transaction.Prepare(
            "INSERT INTO problem (id, name, level, owner, time, since, state, unsolved, user_name, about,"
            " until_verified) VALUES (:id, :name, :level, :owner, :time, :since, :state, :unsolved, :user,"
            " :about, :until) RETURNING number");
        insert.With(problem.id).With(problem.name).With(problem.level).With(problem.owner).With(problem.time);
        insert.With(problem.time).With(problem.news ? "news" : "raised").With(!problem.news);
        insert.With(problem.user).With(problem.about).With(problem.until_verified);
        insert.Into(number).Next();
    }
    SetParameters(transaction, number, problem);
    return number;
}

/// Those of the condition are over; its values come in this order. Returns how many these are.
long long Solve(Transaction& transaction, const std::string& condition,
                const std::vector<std::string>& values) {
    long long count = 0;
    for (const std::string& statement :
         {"DELETE FROM delivery WHERE digest = '' AND problem IN (SELECT number FROM problem WHERE " +
              condition + ")",
          "UPDATE problem SET state = 'resolved', unsolved = 0 WHERE " + condition}) {
        Statement change = transaction.Prepare(statement);
        for (const std::string& value : values) change.With(value);
        count = change.Run();
    }
    return count;
}

/// Each state has an index of its own, so that a page of a few among many does not read all of them.
std::string Condition(State state) {
    switch (state) {
        case State::kOpen: return "unsolved = 1 AND ";
        case State::kRaised: return "state = 'raised' AND ";
        case State::kSeen: return "state = 'seen' AND ";
        case State::kResolved: return "state = 'resolved' AND ";
        case State::kNews: return "state = 'news' AND ";
        case State::kAny: break;
    }
    return "";
}

const std::string kSelect =
    "SELECT number, id, name, level, owner, time, user_name, about, state, since, times FROM problem WHERE ";

std::vector<Problem> Read(Transaction& transaction, Statement& select) {
    std::vector<Problem> found;
    Problem problem;
    select.Into(problem.number).Into(problem.id).Into(problem.name).Into(problem.level);
    select.Into(problem.owner).Into(problem.time).Into(problem.user).Into(problem.about);
    select.Into(problem.state).Into(problem.since).Into(problem.times);
    while (select.Next()) found.push_back(problem);
    for (Problem& one : found) one.parameters = ParametersOf(transaction, one.number);
    return found;
}

}  // namespace

void Raise(Transaction& transaction, const Problem& raised) {
    Problem problem = raised;
    if (problem.id.empty()) problem.id = str::hex::Encode(str::Random(kIdBytes));
    if (IsThere(transaction, problem.id)) return;
    const long long open = problem.news ? 0 : OpenOne(transaction, problem);
    if (open != 0) Repeat(transaction, open, problem);
    const long long number = open != 0 ? open : Insert(transaction, problem);
    if (open == 0)
        LogToJournal(Happening::kNoticeRaised,
                     {.certname = problem.about, .user = problem.user, .outcome = problem.name},
                     "notification " + problem.name + " for " + problem.owner);
    if (open == 0 || problem.tell_again) deliveries::Queue(transaction, number);
}

void Resolve(Transaction& transaction, const std::string& name, const std::string& user,
             const std::string& about) {
    Solve(transaction, "user_name = :user AND about = :about AND name = :name AND unsolved = 1",
          {user, about, name});
}

void ResolveOfCertificate(Transaction& transaction, const std::string& user, const std::string& folder) {
    Solve(transaction, "user_name = :user AND about = :about AND until_verified = 1 AND unsolved = 1",
          {user, folder});
}

bool SetSeen(Transaction& transaction, long long number) {
    return transaction
               .Prepare(
                   "UPDATE problem SET state = CASE WHEN state = 'raised' THEN 'seen' ELSE state END"
                   " WHERE number = :number")
               .With(number)
               .Run() == 1;
}

long long SetSomeSeen(Transaction& transaction, int limit) {
    return transaction
        .Prepare(
            "UPDATE problem SET state = 'seen' WHERE number IN"
            " (SELECT number FROM problem WHERE state = 'raised' ORDER BY number LIMIT :limit)")
        .With(limit)
        .Run();
}

bool Clear(Transaction& transaction, long long number) {
    if (!Find(transaction, number)) return false;
    Solve(transaction, "number = " + std::to_string(number), {});
    return true;
}

long long ClearSome(Transaction& transaction, int limit) {
    long long count = 0;
    for (const std::string state : {"raised", "seen", "news"}) {
        count += Solve(transaction,
                       "number IN (SELECT number FROM problem WHERE state = '" + state +
                           "' ORDER BY number LIMIT " + std::to_string(limit) + ")",
                       {});
    }
    return count;
}

std::vector<Problem> List(Transaction& transaction, State state, long long after, int limit) {
    Statement select =
        transaction.Prepare(kSelect + Condition(state) + "number > :after ORDER BY number LIMIT :most");
    return Read(transaction, select.With(after).With(limit));
}

std::vector<Problem> ListOfUser(Transaction& transaction, const std::string& user, State state,
                                long long after, int limit) {
    Statement select = transaction.Prepare(kSelect + "user_name = :user AND user_name > '' AND " +
                                           Condition(state) + "number > :after ORDER BY number LIMIT :most");
    return Read(transaction, select.With(user).With(after).With(limit));
}

std::vector<Problem> OpenOf(Transaction& transaction, const std::string& owner, long long after, int limit) {
    Statement select = transaction.Prepare(
        kSelect + "owner = :owner AND unsolved = 1 AND number > :after ORDER BY number LIMIT :most");
    return Read(transaction, select.With(owner).With(after).With(limit));
}

std::optional<Problem> Find(Transaction& transaction, long long number) {
    Statement select = transaction.Prepare(kSelect + "number = :number");
    const std::vector<Problem> found = Read(transaction, select.With(number));
    if (found.empty()) return std::nullopt;
    return found.front();
}

long long RemoveOlder(Transaction& transaction, const std::string& time, long long most, int limit) {
    const long long old =
        transaction
            .Prepare(
                "DELETE FROM problem WHERE number IN"
                " (SELECT number FROM problem WHERE time < :time ORDER BY time, number LIMIT :limit)")
            .With(time)
            .With(limit)
            .Run();
    // Numbers grow by one, and gaps are few: what is too many is found without counting.
    const long long too_many =
        transaction
            .Prepare(
                "DELETE FROM problem WHERE number < (SELECT min(number) FROM problem) + :limit"
                " AND number <= (SELECT max(number) FROM problem) - :most")
            .With(limit - old)
            .With(most)
            .Run();
    return old + too_many;
}

}  // namespace zelvek::problems
