#include "zelvek/store/tallies.h"

namespace zelvek::tallies {

void CountRun(Transaction& transaction, const std::string& outcome, const std::string& reason) {
    transaction
        .Prepare(
            "INSERT INTO run_count (outcome, reason, runs) VALUES (:outcome, :reason, 1)"
            " ON CONFLICT (outcome, reason) DO UPDATE SET runs = run_count.runs + 1")
        .With(outcome)
        .With(reason)
        .Run();
}

std::vector<Runs> OfRuns(Transaction& transaction) {
    std::vector<Runs> all;
    Runs some;
    Statement select = transaction.Prepare("SELECT outcome, reason, runs FROM run_count");
    select.Into(some.outcome).Into(some.reason).Into(some.number);
    while (select.Next()) all.push_back(some);
    return all;
}

void CountRunOfDay(Transaction& transaction, const std::string& day, const std::string& outcome) {
    transaction
        .Prepare(
            "INSERT INTO run_day (day, outcome, runs) VALUES (:day, :outcome, 1)"
            " ON CONFLICT (day, outcome) DO UPDATE SET runs = run_day.runs + 1")
        .With(day)
        .With(outcome)
        .Run();
}

std::vector<RunsOfDay> OfRunsSince(Transaction& transaction, const std::string& day) {
    Statement select =
        transaction.Prepare("SELECT day, outcome, runs FROM run_day WHERE day >= :day ORDER BY day, outcome");
    RunsOfDay some;
    select.With(day).Into(some.day).Into(some.outcome).Into(some.runs);
    std::vector<RunsOfDay> found;
    while (select.Next()) found.push_back(some);
    return found;
}

void ForgetDaysBefore(Transaction& transaction, const std::string& day) {
    transaction.Prepare("DELETE FROM run_day WHERE day < :day").With(day).Run();
}

void CountDuration(Transaction& transaction, const Durations& one) {
    transaction
        .Prepare(
            "INSERT INTO run_duration (bound, runs, milliseconds) VALUES (:bound, :runs, :milliseconds)"
            " ON CONFLICT (bound) DO UPDATE SET runs = run_duration.runs + excluded.runs,"
            " milliseconds = run_duration.milliseconds + excluded.milliseconds")
        .With(one.bound)
        .With(one.runs)
        .With(one.milliseconds)
        .Run();
}

std::vector<Durations> OfDurations(Transaction& transaction) {
    std::vector<Durations> all;
    Durations some;
    Statement select = transaction.Prepare("SELECT bound, runs, milliseconds FROM run_duration");
    select.Into(some.bound).Into(some.runs).Into(some.milliseconds);
    while (select.Next()) all.push_back(some);
    return all;
}

std::map<std::string, long long> OfNotices(Transaction& transaction) {
    std::map<std::string, long long> counts;
    std::string state;
    long long notices = 0;
    Statement select = transaction.Prepare("SELECT state, problems FROM problem_count");
    select.Into(state).Into(notices);
    while (select.Next()) counts[state] = notices;
    return counts;
}

std::vector<Ends> OfEnds(Transaction& transaction, const std::string& after, int limit) {
    std::vector<Ends> all;
    Ends some;
    Statement select =
        transaction.Prepare("SELECT day, jobs FROM end_count WHERE day > :after ORDER BY day LIMIT :most");
    select.With(after).With(limit).Into(some.day).Into(some.jobs);
    while (select.Next()) all.push_back(some);
    return all;
}

}  // namespace zelvek::tallies
