#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zelvek/base/process.h"

namespace SQLite {
class Database;
}

/// What is published outside on somebody's behalf. A thing that two jobs publish (an authority may hand both
/// the same authorization) stands here once for each. Every function works inside the caller's transaction.
namespace zelvek::publications {

/// An http-01 answer file (empty zone, named by its token, without value) or a TXT record.
struct Thing {
    std::string zone, name, value;

    bool IsAnswer() const { return zone.empty(); }
    bool operator==(const Thing&) const = default;
};

struct Publication {
    long long id = 0;
    Thing thing;
    std::string user_name;
    int job = 0;            // the job that its publisher was working on; 0 for none
    Process publisher;      // the newest one
    bool kept = false;      // the job's run has been written back with it: a dead publisher does not end it
    bool unwanted = false;  // to be removed; tried until it succeeds
};

/// Records that `publisher` is about to publish this for its job. Returns the entry that stood there before.
std::optional<Publication> Put(SQLite::Database& database, const Publication& publication);

/// Stores an entry just as it is, where it stood before.
void Restore(SQLite::Database& database, const Publication& publication);

void Drop(SQLite::Database& database, const Thing& thing, int job);

std::vector<Publication> All(SQLite::Database& database);

/// The entries of one thing.
std::vector<Publication> Of(SQLite::Database& database, const Thing& thing);

/// The user's TXT records of this name and value, in whatever zones.
std::vector<Publication> RecordsOf(SQLite::Database& database, const std::string& user,
                                   const std::string& name, const std::string& value);

/// At a job's write-back: everything that is left of it becomes unwanted, or kept.
void SetUnwanted(SQLite::Database& database, int job);
void SetKept(SQLite::Database& database, int job);

/// Marks what dead processes published and no write-back kept.
void SetUnwantedOfDead(SQLite::Database& database);

}  // namespace zelvek::publications
