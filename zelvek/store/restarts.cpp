#include "zelvek/store/restarts.h"

#include <algorithm>

#include "vek/date.h"
#include "vek/err.h"
#include "zelvek/store/jobs.h"

namespace zelvek::restarts {

namespace {

/// A start that cannot be read counts as long ago.
bool DayIsOver(const std::string& started, const std::string& now) try {
    return vek_date::DateTime(started).AddDays(1) <= vek_date::DateTime(now);
} catch (const vek_err::Error&) {
    return true;
}

}  // namespace

void SetValidity(Transaction& transaction, const std::string& user, const std::string& folder,
                 const Validity& validity) {
    transaction.NoteDue(validity.renew);
    transaction
        .Prepare(
            "UPDATE job SET expires = :expires, renew = :renew, ask_renewal = :ask, notice_step = 0,"
            " notice_due = :look WHERE user_name = :user AND folder = :folder")
        .With(validity.expires)
        .With(validity.renew)
        .With(validity.ask)
        .With(validity.renew)
        .With(user)
        .With(folder)
        .Run();
}

void SetRenewal(Transaction& transaction, const Job& asked, const std::string& renew,
                const std::string& ask) {
    transaction.NoteDue(renew);
    transaction
        .Prepare(
            "UPDATE job SET notice_due = CASE WHEN renew = :same THEN notice_due ELSE :look END,"
            " renew = :renew, ask_renewal = :ask"
            " WHERE user_name = :user AND folder = :folder AND expires = :expires")
        .With(renew)
        .With(renew)
        .With(renew)
        .With(ask)
        .With(asked.user_name)
        .With(asked.folder)
        .With(asked.expires)
        .Run();
}

long long PlannedBetween(Transaction& transaction, const std::string& from, const std::string& before) {
    long long count = 0;
    Statement select = transaction.Prepare(
        "SELECT count(*) FROM job WHERE verified = 1 AND paused = 0 AND renew >= :from AND renew < :before");
    select.With(from).With(before).Into(count).Next();
    return count;
}

std::vector<Job> RenewalToAskFor(Transaction& transaction, const std::string& now, int limit) {
    std::vector<Job> found;
    Job job;
    Statement select = transaction.Prepare(
        "SELECT id, certname, user_name, folder, expires, renew, authority FROM job"
        " WHERE verified = 1 AND ask_renewal > '' AND ask_renewal <= :now ORDER BY ask_renewal, id LIMIT "
        ":most");
    select.With(now).With(limit).Into(job.id).Into(job.certname).Into(job.user_name).Into(job.folder);
    select.Into(job.expires).Into(job.renew).Into(job.authority);
    while (select.Next()) found.push_back(job);
    return found;
}

std::vector<int> RenewalDue(Transaction& transaction, const std::string& now, int limit) {
    Statement select = transaction.Prepare(
        "SELECT id FROM job WHERE verified = 1 AND renew > '' AND renew <= :now AND processing = 0 AND "
        "paused = 0"
        " ORDER BY renew, id LIMIT :most");
    return select.With(now).With(limit).Numbers();
}

std::vector<int> StoppedDue(Transaction& transaction, const std::string& now, int limit) {
    Statement select = transaction.Prepare(
        "SELECT id FROM job WHERE failed = 1 AND verified = 0 AND processing = 0 AND paused = 0 AND due <= "
        ":now"
        " ORDER BY due, id LIMIT :most");
    return select.With(now).With(limit).Numbers();
}

std::vector<int> ToRetry(Transaction& transaction, int after, int limit, const std::string& user) {
    std::vector<int> found;
    // Each state has an index of its own.
    for (const jobs::State state : {jobs::State::kWaiting, jobs::State::kFailed}) {
        for (const Job& job : jobs::List(transaction, {after, limit, user, state})) {
            if (!job.processing) found.push_back(job.id);
        }
    }
    std::sort(found.begin(), found.end());
    if (found.size() > static_cast<std::size_t>(limit)) found.resize(static_cast<std::size_t>(limit));
    return found;
}

void Retry(Transaction& transaction, int id, const std::string& now) {
    transaction.NoteDue(now);
    if (jobs::FindShown(transaction, id).failed) StartAnew(transaction, id, now, false);
    transaction
        .Prepare("UPDATE job SET due = :now, next_attempt = '', failures = 0, postponed = '' WHERE id = :id")
        .With(now)
        .With(id)
        .Run();
}

std::vector<Job> OfUnknownEnd(Transaction& transaction, int limit) {
    std::vector<Job> found;
    Job job;
    Statement select = transaction.Prepare(
        "SELECT id, certname, user_name, folder FROM job WHERE verified = 1 AND expires = '' ORDER BY id "
        "LIMIT :most");
    select.With(limit).Into(job.id).Into(job.certname).Into(job.user_name).Into(job.folder);
    while (select.Next()) found.push_back(job);
    return found;
}

std::vector<int> ToRenew(Transaction& transaction, const Renewable& which) {
    const std::string of_user = which.user_name.empty() ? "" : "user_name = :user AND ";
    const std::string ending = which.before.empty() ? "" : " AND expires < :before";
    Statement select = transaction.Prepare("SELECT id FROM job WHERE " + of_user +
                                           "id > :after AND verified = 1 AND processing = 0 AND paused = 0" +
                                           ending + " ORDER BY id LIMIT :most");
    if (!of_user.empty()) select.With(which.user_name);
    select.With(which.after);
    if (!ending.empty()) select.With(which.before);
    return select.With(which.limit).Numbers();
}

void StartAnew(Transaction& transaction, int id, const std::string& now, bool forced) {
    transaction.NoteDue(now);
    transaction
        .Prepare(
            "UPDATE job SET verified = 0, failed = 0, force_update = :forced, time_started = :now, due = "
            ":due,"
            " next_attempt = '', attempt_count = 0, account_check_count = 0, challenges = '', finalize = '',"
            " finalize_check = '' WHERE id = :id")
        .With(forced)
        .With(now)
        .With(now)
        .With(id)
        .Run();
}

void Revive(Transaction& transaction, int id) {
    transaction.Prepare("UPDATE job SET failed = 0 WHERE id = :id").With(id).Run();
}

void Pause(Transaction& transaction, int id) {
    transaction.Prepare("UPDATE job SET paused = 1 WHERE id = :id").With(id).Run();
}

void Resume(Transaction& transaction, int id, const std::string& now) {
    const Job job = jobs::FindShown(transaction, id);
    transaction.Prepare("UPDATE job SET paused = 0 WHERE id = :id").With(id).Run();
    transaction.NoteDue(job.verified ? job.renew : job.due);
    // A run that began now would stop it for good.
    if (!job.verified && !job.failed && !job.processing && DayIsOver(job.time_started, now))
        StartAnew(transaction, id, now, job.force_update);
}

}  // namespace zelvek::restarts
