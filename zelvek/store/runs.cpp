#include "zelvek/store/runs.h"

#include <set>

namespace zelvek::runs {

void Claim(Transaction& transaction, int id, const Process& process) {
    transaction
        .Prepare(
            "UPDATE job SET processing = 1, postponed = '', holder_pid = :pid, holder_start = :start"
            " WHERE id = :id")
        .With(process.pid)
        .With(process.start)
        .With(id)
        .Run();
}

void Hold(Transaction& transaction, int id, const Process& process) {
    Claim(transaction, id, process);
    transaction
        .Prepare(
            "INSERT INTO reader (pid, start, job) VALUES (:pid, :start, :job)"
            " ON CONFLICT (pid) DO UPDATE SET start = excluded.start, job = excluded.job")
        .With(process.pid)
        .With(process.start)
        .With(id)
        .Run();
}

int JobOf(Transaction& transaction, const Process& process) {
    int job = 0;
    Statement select = transaction.Prepare("SELECT job FROM reader WHERE pid = :pid AND start = :start");
    return select.With(process.pid).With(process.start).Into(job).Next() ? job : 0;
}

void ForgetDeadProcesses(Transaction& transaction) {
    std::vector<Process> dead;
    Process reader;
    Statement select = transaction.Prepare("SELECT pid, start FROM reader");
    select.Into(reader.pid).Into(reader.start);
    while (select.Next()) {
        if (!Alive(reader)) dead.push_back(reader);
    }
    for (const Process& process : dead) {
        transaction.Prepare("DELETE FROM reader WHERE pid = :pid").With(process.pid).Run();
    }
}

std::vector<int> Due(Transaction& transaction, const std::string& now, int limit) {
    // Runs are counted once for each user, not once for each job that is due.
    Statement select = transaction.Prepare(
        "WITH waiting AS (SELECT id, user_name, due, row_number() OVER (PARTITION BY user_name ORDER BY due, "
        "id) AS turn FROM job"
        " WHERE verified = 0 AND failed = 0 AND processing = 0 AND paused = 0 AND due <= :now),"
        " busy AS (SELECT user_name, count(*) AS runs FROM job WHERE processing = 1 GROUP BY user_name)"
        " SELECT waiting.id FROM waiting LEFT JOIN busy ON busy.user_name = waiting.user_name"
        " ORDER BY waiting.turn + coalesce(busy.runs, 0), waiting.due, waiting.id LIMIT :most");
    return select.With(now).With(limit).Numbers();
}

std::vector<int> WaitingTooLong(Transaction& transaction, const std::string& now, const std::string& latest,
                                int limit) {
    const std::string some = "SELECT id FROM job WHERE ";
    const std::string waiting = some + "verified = 0 AND failed = 0 AND processing = 0 AND paused = 0 AND ";
    const std::string stopped = some + "failed = 1 AND verified = 0 AND processing = 0 AND paused = 0 AND ";
    std::set<int> found;
    const auto find = [&](const std::string& reason, const std::string& time) {
        int id = 0;
        Statement select = transaction.Prepare(reason + " LIMIT :most");
        select.With(time).With(limit).Into(id);
        while (select.Next()) found.insert(id);
    };
    find(waiting + "last_run > :now", now);
    // One that the service itself makes wait is due when it has said.
    find(waiting + "last_run = '' AND next_attempt = '' AND postponed = '' AND due > :now", now);
    find(waiting + "due > :latest", latest);
    find(stopped + "due > :latest", latest);
    return {found.begin(), found.end()};
}

void SetTimes(Transaction& transaction, const Job& job) {
    transaction.NoteDue(job.due);
    transaction
        .Prepare(
            "UPDATE job SET time_started = :started, last_run = :last_run, next_attempt = :next, due = :due"
            " WHERE id = :id")
        .With(job.time_started)
        .With(job.last_run)
        .With(job.next_attempt)
        .With(job.due)
        .With(job.id)
        .Run();
}

void Free(Transaction& transaction, const Job& job) {
    transaction.NoteDue(job.due);
    transaction
        .Prepare(
            "UPDATE job SET processing = 0, died = 1, last_run = :last_run, failures = :failures, due = :due,"
            " notice_due = :notice WHERE id = :id")
        .With(job.last_run)
        .With(job.failures)
        .With(job.due)
        .With(job.notice_due)
        .With(job.id)
        .Run();
}

bool ClaimIfDue(Transaction& transaction, int id, const Process& process, const std::string& now) {
    return transaction
               .Prepare(
                   "UPDATE job SET processing = 1, postponed = '', holder_pid = :pid, holder_start = :start"
                   " WHERE id = :id AND verified = 0 AND failed = 0 AND processing = 0 AND paused = 0"
                   " AND due <= :now")
               .With(process.pid)
               .With(process.start)
               .With(id)
               .With(now)
               .Run() == 1;
}

std::string NextDue(Transaction& transaction, const std::string& now) {
    std::string next;
    for (const char* text :
         {"SELECT due FROM job WHERE verified = 0 AND failed = 0 AND processing = 0 AND paused = 0 AND due > "
          ":now"
          " ORDER BY due LIMIT 1",
          "SELECT due FROM job WHERE failed = 1 AND verified = 0 AND processing = 0 AND paused = 0 AND due > "
          ":now"
          " ORDER BY due LIMIT 1",
          "SELECT renew FROM job WHERE verified = 1 AND renew > :now AND processing = 0 AND paused = 0"
          " ORDER BY renew LIMIT 1"}) {
        std::string time;
        Statement select = transaction.Prepare(text);
        if (select.With(now).Into(time).Next() && (next.empty() || time < next)) next = time;
    }
    return next;
}

void Postpone(Transaction& transaction, int id, const std::string& until, const std::string& reason) {
    transaction.NoteDue(until);
    transaction.Prepare("UPDATE job SET due = :until, postponed = :reason WHERE id = :id")
        .With(until)
        .With(reason)
        .With(id)
        .Run();
}

}  // namespace zelvek::runs
