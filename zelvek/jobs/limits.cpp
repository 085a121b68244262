#include "zelvek/jobs/limits.h"

#include <algorithm>

#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/base/authority.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/jobs/outcome.h"
#include "zelvek/store/accounts.h"
#include "zelvek/store/usage.h"

namespace zelvek {

namespace {

using usage::Kind;
using vek_date::DateTime;

constexpr int kFailureWindow = 3600;  // seconds
constexpr int kOrderWindow = 3 * 3600;
constexpr int kForgottenAtOnce = 500;

std::string After(const std::string& time, int seconds) {
    return DateTime(time).AddSeconds(seconds).AsDateTime();
}

/// The account that a run of the job will use: its own, or the panel's. One that is not registered yet is
/// known by its authority.
std::string AccountOf(Transaction& transaction, const Job& job) {
    if (!job.kid.empty()) return job.kid;
    const std::string kid = accounts::Default(transaction, job.authority).kid;
    return kid.empty() && job.authority != authorities::kFirst ? job.authority : kid;
}

/// A name as one authority counts it.
std::string NameAt(const Job& job, const std::string& name) {
    return job.authority == authorities::kFirst ? name : job.authority + " " + name;
}

/// The name that the authority checks: a wildcard is proved by the name below which it stands. Older versions
/// took names that have no ASCII form; no authority does.
std::string CheckedName(const std::string& name) {
    try {
        return names::WithoutWildcard(names::Canonical(name));
    } catch (const Error&) {
        return name;
    }
}

std::vector<std::string> CheckedNames(const Job& job) {
    std::vector<std::string> checked;
    for (const std::string& name : str::Split(job.aliases, " ")) checked.push_back(CheckedName(name));
    std::sort(checked.begin(), checked.end());
    checked.erase(std::unique(checked.begin(), checked.end()), checked.end());
    return checked;
}

/// A run with challenges from an earlier one goes on with their order.
bool WillOrder(const Job& job) { return job.attempt_count == 0 || job.challenges.empty(); }

/// What is allowed: so many uses by one subject within so many seconds.
struct Allowance {
    Kind kind;
    int most;
    int window;
};

/// When there is room for one more within the window; nothing where there is room now.
std::optional<std::string> RoomFrom(Transaction& transaction, const Allowance& allowance,
                                    const std::string& subject, const std::string& now) {
    const auto oldest = usage::TimeOf(transaction, allowance.kind, subject, After(now, -allowance.window),
                                      allowance.most - 1);
    if (!oldest) return std::nullopt;
    // A time in the future is another clock's.
    return After(std::min(*oldest, now), allowance.window + 1);
}

bool Is(const history::Event& event, const std::string& name) { return event.event == name; }

bool HasFailedAuthorization(const std::vector<history::Event>& events) {
    return std::any_of(events.begin(), events.end(), &IsFailedCheck);
}

bool HasOrder(const std::vector<history::Event>& events) {
    return std::any_of(events.begin(), events.end(),
                       [](const history::Event& event) { return Is(event, "order_success"); });
}

}  // namespace

std::optional<Hold> HeldBack(Transaction& transaction, const Job& job, const Limits& limits,
                             const std::string& now) {
    if (WillOrder(job)) {
        const auto from = RoomFrom(transaction, {Kind::kOrder, limits.orders, kOrderWindow},
                                   AccountOf(transaction, job), now);
        if (from) {
            return Hold{*from, "the account has placed " + std::to_string(limits.orders) +
                                   " orders within three hours, and the authority allows few more"};
        }
    }
    for (const std::string& name : CheckedNames(job)) {
        const auto from =
            RoomFrom(transaction, {Kind::kFailure, limits.failures, kFailureWindow}, NameAt(job, name), now);
        if (from) {
            return Hold{*from, "checks of " + name + " have failed " + std::to_string(limits.failures) +
                                   " times within an hour, and the authority allows few more"};
        }
    }
    return std::nullopt;
}

int OrdersOf(Transaction& transaction, const std::string& authority, const std::string& now, int most) {
    Job any;
    any.authority = authority;
    return usage::CountSince(transaction, Kind::kOrder, AccountOf(transaction, any),
                             After(now, -kOrderWindow), most);
}

void NoteRun(Transaction& transaction, const Job& job, const std::string& now) {
    usage::DropOpen(transaction, job.id);
    if (WillOrder(job))
        usage::Note(transaction, job.id, {Kind::kOrder, AccountOf(transaction, job), now, true});
    for (const std::string& name : CheckedNames(job))
        usage::Note(transaction, job.id, {Kind::kFailure, NameAt(job, name), now, true});
}

void NoteEnd(Transaction& transaction, const Job& job, const std::vector<history::Event>& events,
             const std::string& now) {
    usage::DropOpen(transaction, job.id);
    if (HasOrder(events)) usage::Note(transaction, job.id, {Kind::kOrder, job.kid, now, false});
    if (!HasFailedAuthorization(events)) return;
    for (const std::string& name : CheckedNames(job))
        usage::Note(transaction, job.id, {Kind::kFailure, NameAt(job, name), now, false});
}

void NoteDeath(Transaction& transaction, int job) {
    usage::CountOpen(transaction, job, Kind::kOrder);
    usage::DropOpen(transaction, job);
}

void ForgetOldUse(Transaction& transaction, const std::string& now) {
    usage::RemoveOlder(transaction, After(now, -kOrderWindow), kForgottenAtOnce);
}

}  // namespace zelvek
