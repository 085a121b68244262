#pragma once

#include <string>
#include <vector>

#include "zelvek/base/job.h"
#include "zelvek/store/store.h"

/// Runs of jobs: which are due, and which process has which job. Every function works inside the caller's
/// transaction.
namespace zelvek::runs {

/// Makes the process the job's holder and the job "processing".
void Claim(Transaction& transaction, int id, const Process& process);

/// As `Claim`, for a process that has got the record: its publications are the job's from now on.
void Hold(Transaction& transaction, int id, const Process& process);

/// The job whose record this process read last; 0 for none.
int JobOf(Transaction& transaction, const Process& process);

/// Forgets which jobs dead processes have read.
void ForgetDeadProcesses(Transaction& transaction);

/// The jobs that are due at `now`, at most `limit`, in an order that is fair between users: first each user's
/// longest due one, then each user's second, and so on, where a user's runs under way count like jobs ahead
/// of these; jobs of the same turn by the time since which they are due.
std::vector<int> Due(Transaction& transaction, const std::string& now, int limit);

/// The earliest time after `now` at which a waiting or stopped job is due, or a certificate's renewal; empty
/// for none.
std::string NextDue(Transaction& transaction, const std::string& now);

/// The waiting job is due at `until` instead; `reason` says why, for people.
void Postpone(Transaction& transaction, int id, const std::string& until, const std::string& reason);

/// Waiting jobs, at most `limit` for each reason, that would be due much too late: their last run is to end
/// after `now`, they have had none and are due after `now` though neither a run nor `Postpone` has said so,
/// or they are due after `latest`; and stopped ones that are. Texts that are no times count where they sort.
std::vector<int> WaitingTooLong(Transaction& transaction, const std::string& now, const std::string& latest,
                                int limit);

/// Stores the job's times alone: its start, its last run, what that has asked for, and when it is due.
void SetTimes(Transaction& transaction, const Job& job);

/// As `Claim`, if the job is due at `now` and nobody works on it; says whether it was.
bool ClaimIfDue(Transaction& transaction, int id, const Process& process, const std::string& now);

/// Frees a job whose run has died: no longer "processing". Its last run, failures and due time are stored.
void Free(Transaction& transaction, const Job& job);

}  // namespace zelvek::runs
