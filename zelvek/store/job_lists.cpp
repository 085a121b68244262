#include "zelvek/store/job_lists.h"

#include "zelvek/store/jobs.h"

namespace zelvek::job_lists {

namespace {

enum class Key { kId, kDue, kEnd };

/// The condition is that of the list's index, word for word.
struct List {
    std::string condition;
    Key key;
    bool until = false;           // whether a time bounds it
    bool by_key_of_user = false;  // whether there is an index over a user's part of it by key
};

List ListOf(Kind kind) {
    static const std::string waiting =
        "job.verified = 0 AND job.failed = 0 AND job.processing = 0 AND job.paused = 0";
    switch (kind) {
        case Kind::kFailed: return {"job.failed = 1 AND job.verified = 0 AND job.paused = 0", Key::kDue};
        case Kind::kFailing: return {waiting + " AND job.failures > 0", Key::kDue};
        case Kind::kOnItsWay: return {waiting + " AND job.failures = 0", Key::kDue};
        case Kind::kRunning:
            return {"job.processing = 1 AND job.verified = 0 AND job.failed = 0 AND job.paused = 0",
                    Key::kId};
        case Kind::kVerified: return {"job.verified = 1 AND job.paused = 0", Key::kEnd};
        case Kind::kPaused: return {"job.paused = 1", Key::kId};
        case Kind::kWaiting: return {waiting, Key::kDue};
        case Kind::kDue: return {waiting, Key::kDue, true};
        case Kind::kEnding: break;
    }
    return {"job.expires > ''", Key::kEnd, true, true};
}

Key KeyOf(const List& list, const std::string& user) {
    return user.empty() || list.by_key_of_user ? list.key : Key::kId;
}

std::string ColumnOf(Key key) { return key == Key::kDue ? "job.due" : "job.expires"; }

std::string ConditionOf(const Selection& selection, const List& list) {
    const Key key = KeyOf(list, selection.user_name);
    std::string condition = list.condition;
    if (!selection.user_name.empty()) condition = "job.user_name = :user AND " + condition;
    if (list.until) condition += " AND " + ColumnOf(list.key) + " <= :until";
    if (key == Key::kId) return condition + " AND job.id > :after ORDER BY job.id LIMIT :most";
    const std::string column = ColumnOf(key);
    return condition + " AND (" + column + ", job.id) > (:key, :after) ORDER BY " + column +
           ", job.id LIMIT :most";
}

}  // namespace

std::vector<Job> Some(Transaction& transaction, const Selection& selection) {
    const List list = ListOf(selection.kind);
    const Key key = KeyOf(list, selection.user_name);
    return jobs::Select(transaction, ConditionOf(selection, list), [&](Statement& select) {
        if (!selection.user_name.empty()) select.With(selection.user_name);
        if (list.until) select.With(selection.until);
        if (key != Key::kId) select.With(selection.after.key);
        select.With(selection.after.id).With(selection.limit);
    });
}

std::vector<Job> SomeByName(Transaction& transaction, const ByName& selection) {
    // What follows all names with this beginning, in the order of bytes: no text in UTF-8 has this one.
    const std::string beyond = selection.begin + "\xff";
    const bool of_user = !selection.user_name.empty();
    const std::string condition =
        std::string(of_user ? "job.user_name = :user AND " : "") +
        "job.certname >= :begin AND job.certname < :beyond AND (job.certname, job.id) > (:key, :after)"
        " ORDER BY job.certname, job.id LIMIT :most";
    return jobs::Select(transaction, condition, [&](Statement& select) {
        if (of_user) select.With(selection.user_name);
        select.With(selection.begin).With(beyond).With(selection.after.key);
        select.With(selection.after.id).With(selection.limit);
    });
}

Place PlaceOf(const Selection& selection, const Job& job) {
    switch (KeyOf(ListOf(selection.kind), selection.user_name)) {
        case Key::kDue: return {job.due, job.id};
        case Key::kEnd: return {job.expires, job.id};
        case Key::kId: break;
    }
    return {"", job.id};
}

Kind KindOf(const Job& job) {
    if (job.paused) return Kind::kPaused;
    if (job.verified) return Kind::kVerified;
    if (job.failed) return Kind::kFailed;
    if (job.processing) return Kind::kRunning;
    return job.failures > 0 ? Kind::kFailing : Kind::kOnItsWay;
}

const char* Word(Kind kind) {
    switch (kind) {
        case Kind::kFailed: return "failed";
        case Kind::kFailing: return "failing";
        case Kind::kOnItsWay:
        case Kind::kWaiting:
        case Kind::kDue: return "waiting";
        case Kind::kRunning: return "running";
        case Kind::kPaused: return "paused";
        case Kind::kVerified:
        case Kind::kEnding: break;
    }
    return "verified";
}

long long Count(Transaction& transaction, Kind kind) {
    long long count = 0;
    transaction.Prepare("SELECT jobs FROM job_count WHERE state = :state")
        .With(Word(kind))
        .Into(count)
        .Next();
    return count;
}

}  // namespace zelvek::job_lists
