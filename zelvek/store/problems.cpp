#include "zelvek/store/problems.h"

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

}  // namespace

void Add(Transaction& transaction, const Problem& problem) {
    long long number = 0;
    {
        Statement insert = transaction.Prepare(
            "INSERT INTO problem (id, name, level, owner, time) VALUES (:id, :name, :level, :owner, :time)"
            " ON CONFLICT DO NOTHING RETURNING number");
        insert.With(problem.id).With(problem.name).With(problem.level).With(problem.owner).With(problem.time);
        if (!insert.Into(number).Next()) return;
    }
    for (const auto& [name, value] : problem.parameters) {
        transaction
            .Prepare("INSERT INTO problem_parameter (problem, name, value) VALUES (:problem, :name, :value)")
            .With(number)
            .With(name)
            .With(value)
            .Run();
    }
}

void Remove(Transaction& transaction, const std::string& id) {
    transaction.Prepare("DELETE FROM problem WHERE id = :id").With(id).Run();
}

std::vector<Problem> List(Transaction& transaction, long long after, int limit) {
    std::vector<Problem> found;
    {
        Problem problem;
        Statement select = transaction.Prepare(
            "SELECT number, id, name, level, owner, time FROM problem WHERE number > :after"
            " ORDER BY number LIMIT :most");
        select.With(after).With(limit).Into(problem.number).Into(problem.id).Into(problem.name);
        select.Into(problem.level).Into(problem.owner).Into(problem.time);
        while (select.Next()) found.push_back(problem);
    }
    for (Problem& problem : found) problem.parameters = ParametersOf(transaction, problem.number);
    return found;
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
