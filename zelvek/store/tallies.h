#pragma once

#include <map>
#include <string>
#include <vector>

#include "zelvek/store/store.h"

/// What is counted while it happens, so that asking for it costs the same however much of it there is. Every
/// function works inside the caller's transaction.
namespace zelvek::tallies {

/// Runs that have ended alike, since the database was made.
struct Runs {
    std::string outcome;  // what became of the job
    std::string reason;   // what kind of failure it was
    long long number = 0;
};

/// One more run has ended so. There are few words for either.
void CountRun(Transaction& transaction, const std::string& outcome, const std::string& reason);

std::vector<Runs> OfRuns(Transaction& transaction);

/// Runs that ended alike on one day.
struct RunsOfDay {
    std::string day;  // a date
    std::string outcome;
    long long runs = 0;
};

/// One more run has ended so on that day.
void CountRunOfDay(Transaction& transaction, const std::string& day, const std::string& outcome);

/// From `day` on, in the order of the days.
std::vector<RunsOfDay> OfRunsSince(Transaction& transaction, const std::string& day);

/// Forgets the days before `day`.
void ForgetDaysBefore(Transaction& transaction, const std::string& day);

/// Runs that took at most `bound` seconds and longer than the next smaller bound; 0 is no bound.
struct Durations {
    long long bound = 0;
    long long runs = 0;
    long long milliseconds = 0;  // all of them together
};

/// One more run has taken so long.
void CountDuration(Transaction& transaction, const Durations& one);

std::vector<Durations> OfDurations(Transaction& transaction);

/// How many notifications are in each state, by the state's name.
std::map<std::string, long long> OfNotices(Transaction& transaction);

/// Certificates that end on one day.
struct Ends {
    std::string day;  // a date
    long long jobs = 0;
};

/// Days after `after`, in their order, at most `limit`.
std::vector<Ends> OfEnds(Transaction& transaction, const std::string& after, int limit);

}  // namespace zelvek::tallies
