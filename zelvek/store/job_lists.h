#pragma once

#include <array>
#include <string>
#include <vector>

#include "zelvek/base/job.h"
#include "zelvek/store/store.h"

/// Lists of jobs for people, each read by an index of its own, a page at a time. Every function works inside
/// the caller's transaction.
namespace zelvek::job_lists {

enum class Kind {
    kFailed,    // stopped, by the time when they begin anew
    kFailing,   // waiting after failures, by the time of the next run
    kOnItsWay,  // waiting without failures, by the time of the next run
    kRunning,   // by id
    kVerified,  // with an installed certificate, by its end
    kPaused,    // by id
    kWaiting,   // kFailing and kOnItsWay, by the time of the next run
    kDue,       // waiting, due until a time
    kEnding,    // whose certificate, installed some time, ends until a time, in whatever state; by its end
};

/// All jobs, those that need attention first: each job is in one of these lists.
inline constexpr std::array kByAttention{Kind::kFailed,  Kind::kFailing,  Kind::kOnItsWay,
                                         Kind::kRunning, Kind::kVerified, Kind::kPaused};

/// Where in a list a job stands: lists are sorted by key, then by id.
struct Place {
    std::string key = {};
    int id = 0;
};

struct Selection {
    Kind kind = Kind::kFailed;
    std::string user_name = {};  // of this user alone, unless it is empty
    Place after = {};
    int limit = 0;
    std::string until = {};  // for kDue and kEnding: a date-time
};

/// As jobs::FindShown has them. Of one user, lists but kEnding are sorted by id alone.
std::vector<Job> Some(Transaction& transaction, const Selection& selection);

/// Which jobs a list by name has: those whose certificates' names begin so, in the order of these names.
struct ByName {
    std::string begin = {};
    std::string user_name = {};  // of this user alone, unless it is empty
    Place after = {};            // its key is a certificate's name
    int limit = 0;
};

/// As jobs::FindShown has them.
std::vector<Job> SomeByName(Transaction& transaction, const ByName& selection);

/// The place of a job in such a list.
Place PlaceOf(const Selection& selection, const Job& job);

/// Which list of `kByAttention` the job is in.
Kind KindOf(const Job& job);

/// The word for a list of `kByAttention`: "failed", "failing", "waiting" (kOnItsWay), "running", "verified",
/// "paused".
const char* Word(Kind kind);

/// How many jobs a list of `kByAttention` has, everybody's; they are not read for that.
long long Count(Transaction& transaction, Kind kind);

}  // namespace zelvek::job_lists
