#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zelvek/base/job.h"
#include "zelvek/store/store.h"

/// Certificate jobs. Every function works inside the caller's transaction.
namespace zelvek::jobs {

/// Stores a new job and returns its id.
int Add(Transaction& transaction, const Job& job);

/// The user's job whose certificate has this folder (`Job::folder`), the first one of several; nothing where
/// there is none.
std::optional<int> OfFolder(Transaction& transaction, const std::string& user, const std::string& folder);

/// Gives the jobs of an older version their folders, where that has not been done yet.
void NameFolders(Transaction& transaction);

/// The whole job, with its account's key. Errors: Error of code kMissed.
Job Find(Transaction& transaction, int id);

/// The job as the command line shows it: the fields that lists have, and its holder; no key. Errors: as
/// `Find`.
Job FindShown(Transaction& transaction, int id);

enum class State { kAny, kVerified, kFailed, kRunning, kWaiting };

/// Which jobs a list has: those with ids above `after`, at most `limit`, of one user unless that is empty.
struct Selection {
    int after = 0;
    int limit = 0;
    std::string user_name = {};
    State state = State::kAny;
};

/// By id, as `FindShown` has them.
std::vector<Job> List(Transaction& transaction, const Selection& selection);

/// Stores what changes after a job was added: what a run may write, with its account, `last_run` and `due`.
/// The job must be one that `Find` has given.
void Save(Transaction& transaction, const Job& job);

/// Makes the process the job's holder and the job "processing".
void Claim(Transaction& transaction, int id, const Process& process);

/// As `Claim`, for a process that has got the record: its publications are the job's from now on.
void Hold(Transaction& transaction, int id, const Process& process);

/// The job whose record this process read last; 0 for none.
int JobOf(Transaction& transaction, const Process& process);

/// Forgets which jobs dead processes have read.
void ForgetDeadProcesses(Transaction& transaction);

/// The jobs that are "processing": their fields are those of lists, `last_run` and the holder.
std::vector<Job> Running(Transaction& transaction);

/// The jobs that are due at `now`, at most `limit`, in an order that is fair between users: first each user's
/// longest due one, then each user's second, and so on, where a user's runs under way count like jobs ahead
/// of these; jobs of the same turn by the time since which they are due.
std::vector<int> Due(Transaction& transaction, const std::string& now, int limit);

/// Waiting jobs, at most `limit` for each reason, that would be due much too late: their last run is to end
/// after `now`, they have had none and are due after `now` though nothing was asked for, or they are due
/// after `latest`. Texts that are no times count where they sort.
std::vector<int> WaitingTooLong(Transaction& transaction, const std::string& now, const std::string& latest,
                                int limit);

/// Stores the job's times alone: its start, its last run, what that has asked for, and when it is due.
void SetTimes(Transaction& transaction, const Job& job);

/// As `Claim`, if the job is due at `now` and nobody works on it; says whether it was.
bool ClaimIfDue(Transaction& transaction, int id, const Process& process, const std::string& now);

/// Frees a job whose run is over: no longer "processing". Its last run, failures and due time are stored.
void Free(Transaction& transaction, const Job& job);

/// How long an installed certificate holds, and when it is renewed: date-times.
struct Validity {
    std::string expires;
    std::string renew;
};

/// For every job of the user with this folder (`Job::folder`).
void SetValidity(Transaction& transaction, const std::string& user, const std::string& folder,
                 const Validity& validity);

/// Verified jobs whose renewal is due at `now`, the longest due first, at most `limit`.
std::vector<int> RenewalDue(Transaction& transaction, const std::string& now, int limit);

/// Stopped jobs that are due at `now`, the longest due first, at most `limit`.
std::vector<int> StoppedDue(Transaction& transaction, const std::string& now, int limit);

/// What the panel has refused to the job's run.
void SetRefusal(Transaction& transaction, int id, const std::string& sentence);

/// Jobs without a certificate of which no run is under way, with ids above `after`, at most `limit`, of one
/// user unless that is empty.
std::vector<int> ToRetry(Transaction& transaction, int after, int limit, const std::string& user);

/// The job is due at once, with no failures counted; a stopped one begins anew.
void Retry(Transaction& transaction, int id, const std::string& now);

/// Verified jobs of whose certificates nobody knows when they end, at most `limit`; certname, user and folder
/// alone.
std::vector<Job> OfUnknownEnd(Transaction& transaction, int limit);

/// Which jobs are to be renewed by hand: verified, idle, with ids above `after`, at most `limit`.
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

/// Removes the job with its history.
void Remove(Transaction& transaction, int id);

}  // namespace zelvek::jobs
