#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "zelvek/base/error.h"
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

/// What is said of a number without a job.
Error NoSuchJob(int id);

/// The job as the command line shows it: the fields that lists have, and its holder; no key. Errors: as
/// `Find`.
Job FindShown(Transaction& transaction, int id);

enum class State { kAny, kVerified, kFailed, kRunning, kWaiting, kPaused };

/// Which jobs a list has: those with ids above `after`, at most `limit`, of one user unless that is empty.
struct Selection {
    int after = 0;
    int limit = 0;
    std::string user_name = {};
    State state = State::kAny;
};

/// By id, as `FindShown` has them.
std::vector<Job> List(Transaction& transaction, const Selection& selection);

/// For the store's own lists: the jobs that a condition selects, which ends with an order and a limit, as
/// `FindShown` has them. `give` binds the condition's values.
std::vector<Job> Select(Transaction& transaction, const std::string& condition,
                        const std::function<void(Statement&)>& give);

/// Stores what changes after a job was added: what a run may write, with its account, `last_run` and `due`.
/// The job must be one that `Find` has given.
void Save(Transaction& transaction, const Job& job);

/// Stores what somebody may change of a job that is there: all that the panel sets, but its start.
void Edit(Transaction& transaction, const Job& job);

/// The jobs that are "processing": their fields are those of lists, `last_run` and the holder.
std::vector<Job> Running(Transaction& transaction);

/// What the panel has refused to the job's run.
void SetRefusal(Transaction& transaction, int id, const std::string& sentence);

/// The jobs to be looked at for notifications at `now` (`Job::notice_due`), the longest due first, at most
/// `limit`: what these say of the certificate and its renewal, and who is told.
std::vector<Job> NoticeDue(Transaction& transaction, const std::string& now, int limit);

/// Stores `notice_step` and `notice_due` alone.
void SetNotice(Transaction& transaction, const Job& job);

/// Removes the job with its history.
void Remove(Transaction& transaction, int id);

}  // namespace zelvek::jobs
