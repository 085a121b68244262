#include "zelvek/store/history.h"

namespace zelvek::history {

void Add(Transaction& transaction, int job, const Event& event) {
    transaction
        .Prepare(
            "INSERT INTO job_event (job, time, state, event, detail)"
            " VALUES (:job, :time, :state, :event, :detail)")
        .With(job)
        .With(event.time)
        .With(event.state)
        .With(event.event)
        .With(event.detail)
        .Run();
}

std::vector<Event> Of(Transaction& transaction, int job) {
    std::vector<Event> events;
    Event event;
    Statement select =
        transaction.Prepare("SELECT time, state, event, detail FROM job_event WHERE job = :job ORDER BY id");
    select.With(job).Into(event.time).Into(event.state).Into(event.event).Into(event.detail);
    while (select.Next()) events.push_back(event);
    return events;
}

std::optional<Event> LastFailure(Transaction& transaction, int job) {
    Event event;
    Statement select = transaction.Prepare(
        "SELECT time, state, event, detail FROM job_event WHERE job = :job AND state = 'failed'"
        " ORDER BY id DESC LIMIT 1");
    select.With(job).Into(event.time).Into(event.state).Into(event.event).Into(event.detail);
    return select.Next() ? std::optional(event) : std::nullopt;
}

void Shorten(Transaction& transaction, int job, int most) {
    long long newest_too_many = 0;
    {
        Statement select = transaction.Prepare(
            "SELECT id FROM job_event WHERE job = :job ORDER BY id DESC LIMIT 1 OFFSET :most");
        if (!select.With(job).With(most).Into(newest_too_many).Next()) return;
    }
    transaction.Prepare("DELETE FROM job_event WHERE job = :job AND id <= :last")
        .With(job)
        .With(newest_too_many)
        .Run();
}

long long RemoveOlder(Transaction& transaction, const std::string& time, int limit) {
    return transaction
        .Prepare(
            "DELETE FROM job_event WHERE id IN"
            " (SELECT id FROM job_event WHERE time < :time ORDER BY time, id LIMIT :most)")
        .With(time)
        .With(limit)
        .Run();
}

}  // namespace zelvek::history
