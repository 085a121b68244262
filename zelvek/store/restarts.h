#pragma once

#include <string>
#include <vector>

#include "zelvek/base/job.h"
#include "zelvek/store/store.h"

/// Jobs that begin again: since their certificates end, since they were stopped, or since somebody wants it.
/// Every function works inside the caller's transaction.
namespace zelvek::restarts {

/// How long an installed certificate holds, and when it is renewed: date-times.
struct Validity {
    std::string expires;
    std::string renew;
    std::string ask = {};  // when the authority is asked for a better time; empty: never
};

/// For every job of the user with this folder (`Job::folder`). Nothing was told of the new certificate's end
/// yet; that is looked at when its renewal begins.
void SetValidity(Transaction& transaction, const std::string& user, const std::string& folder,
                 const Validity& validity);

/// The authority was asked about the certificate of `asked`, as `RenewalToAskFor` has given it, and when it
/// is to be asked again. Nothing changes where another certificate was installed meanwhile. What was told of
/// this one's end stays told.
void SetRenewal(Transaction& transaction, const Job& asked, const std::string& renew, const std::string& ask);

/// How many renewals are planned from that time on, before the other.
long long PlannedBetween(Transaction& transaction, const std::string& from, const std::string& before);

/// Verified jobs of whose certificates the authority is to be asked at `now`, at most `limit`; certname,
/// user, folder, expires, renew and authority alone.
std::vector<Job> RenewalToAskFor(Transaction& transaction, const std::string& now, int limit);

/// Verified jobs, not paused, whose renewal is due at `now`, the longest due first, at most `limit`.
std::vector<int> RenewalDue(Transaction& transaction, const std::string& now, int limit);

/// Stopped jobs, not paused, that are due at `now`, the longest due first, at most `limit`.
std::vector<int> StoppedDue(Transaction& transaction, const std::string& now, int limit);

/// Jobs without a certificate, not paused, of which no run is under way, with ids above `after`, at most
/// `limit`, of one user unless that is empty.
std::vector<int> ToRetry(Transaction& transaction, int after, int limit, const std::string& user);

/// The job is due at once, with no failures counted; a stopped one begins anew.
void Retry(Transaction& transaction, int id, const std::string& now);

/// Verified jobs of whose certificates nobody knows when they end, at most `limit`; certname, user and folder
/// alone.
std::vector<Job> OfUnknownEnd(Transaction& transaction, int limit);

/// Which jobs are to be renewed by hand: verified, idle, not paused, with ids above `after`, at most `limit`.
struct Renewable {
    int after = 0;
    int limit = 0;
    std::string user_name = {};  // empty for all users
    std::string before = {};     // those that expire before this time; empty for all
};
std::vector<int> ToRenew(Transaction& transaction, const Renewable& which);

/// The job begins from the start at `now`, as when it was added: nothing is left of its order, and it is due.
/// Its account and the installed certificate's times stay. `forced`: somebody asked for it.
void StartAnew(Transaction& transaction, int id, const std::string& now, bool forced);

/// Gives a stopped job another try: no longer "failed".
void Revive(Transaction& transaction, int id);

/// A paused job is neither run nor renewed. One whose pause ends goes on where it was, or begins anew where
/// its day is over at `now`.
void Pause(Transaction& transaction, int id);
void Resume(Transaction& transaction, int id, const std::string& now);

}  // namespace zelvek::restarts
