#pragma once

#include <string>
#include <vector>

#include "zelvek/base/process.h"

namespace SQLite {
class Database;
}

/// Certificate jobs and their history. Every function works inside the caller's transaction.
namespace zelvek::jobs {

/// One job; the members bear the names of the record's keys.
struct Job {
    int id = 0;
    std::string certname, domain, user_name, aliases, check_type, res_name, csr_internal_request;
    std::string time_started, next_attempt;
    std::string kid, acmekey, modulus, finalize, finalize_check, challenges;
    int attempt_count = 0;
    int account_check_count = 0;
    int max_account_check_attempts = 0;
    bool verified = false;
    bool failed = false;
    bool force_update = false;
    bool skip_account_check = false;
    bool processing = false;
    std::string last_run;  // when the last run ended; empty before the first
    Process reader;  // who holds or held the job: the process that read it last, or that claimed it for a run
};

struct Event {
    std::string time, state, event, detail;
};

/// Stores a new job and returns its id.
int Add(SQLite::Database& database, const Job& job);

/// Errors: Error of code kMissed.
Job Find(SQLite::Database& database, int id);

std::vector<Job> All(SQLite::Database& database);

/// Stores what a run may change: account, order, challenges, counters, flags, next attempt, processing, last
/// run.
void Save(SQLite::Database& database, const Job& job);

/// Makes the process the job's reader and the job "processing".
void Claim(SQLite::Database& database, int id, const Process& process);

/// As `Claim`, for a process that has got the record: its publications are the job's from now on.
void SetReader(SQLite::Database& database, int id, const Process& process);

/// The job that this process read last; 0 for none.
int LastRead(SQLite::Database& database, const Process& process);

/// Ends "processing" of the jobs whose holder is dead. `now` becomes the end of their last run.
void EndDeadRuns(SQLite::Database& database, const std::string& now);

/// Forgets which jobs dead processes have read.
void ForgetDeadReaders(SQLite::Database& database);

/// Removes the job with its history.
void Remove(SQLite::Database& database, int id);

void AddEvent(SQLite::Database& database, int id, const Event& event);
std::vector<Event> Events(SQLite::Database& database, int id);

}  // namespace zelvek::jobs
