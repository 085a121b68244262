#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zelvek/base/process.h"
#include "zelvek/store/store.h"

/// What is published outside on somebody's behalf. An item that two jobs publish (an authority may hand both
/// the same authorization) stands here once for each. Every function works inside the caller's transaction.
namespace zelvek::publications {

/// An http-01 answer file (empty zone, named by its token, without value) or a TXT record.
struct PublishedItem {
    std::string zone, name, value;

    bool IsAnswer() const { return zone.empty(); }
    bool operator==(const PublishedItem&) const = default;
};

struct Publication {
    long long id = 0;
    PublishedItem item;
    std::string user_name;
    int job = 0;            // the job that its publisher was working on; 0 for none
    Process publisher;      // the newest one
    bool kept = false;      // the job's run has been written back with it: a dead publisher does not end it
    bool unwanted = false;  // to be removed; tried until it succeeds
    bool missing = false;  // not there yet: publishing it failed for a reason that passes, and is tried again
    bool found = false;    // somebody else made it: it goes when a run withdraws it, and not otherwise
    Process withdrawer{};  // the run that has withdrawn it; what counts is that run's write-back
};

/// Records that `publisher` is about to publish this for its job. Returns the entry that stood there before.
std::optional<Publication> Put(Transaction& transaction, const Publication& publication);

/// Stores an entry just as it is, where it stood before.
void Restore(Transaction& transaction, const Publication& publication);

void Drop(Transaction& transaction, const PublishedItem& item, int job);

/// The entries of one item.
std::vector<Publication> Of(Transaction& transaction, const PublishedItem& item);

/// What is published for the job and still wanted, by id.
std::vector<Publication> OfJob(Transaction& transaction, int job);

/// The user's TXT records of this name and value, in whatever zones.
std::vector<Publication> RecordsOf(Transaction& transaction, const std::string& user, const std::string& name,
                                   const std::string& value);

/// The job's entry of an item, if it has one, is withdrawn when that process writes the job back: a run that
/// dies before has withdrawn nothing. Says whether there is one.
bool Withdraw(Transaction& transaction, const PublishedItem& item, int job, const Process& withdrawer);

/// At a job's write-back by this process: what it has withdrawn becomes unwanted, the rest is kept. Returns
/// how many are kept.
long long Keep(Transaction& transaction, int job, const Process& writer);

/// Everything of the job becomes unwanted.
void SetUnwanted(Transaction& transaction, int job);

void SetMissing(Transaction& transaction, const PublishedItem& item, bool missing);

/// When the job may take it that every name server shows the record: no check of it before that time.
void SetSeenByAll(Transaction& transaction, const PublishedItem& item, const std::string& time);

/// The latest of these times of the job's publications; empty for none.
std::string SeenByAll(Transaction& transaction, int job);

void SetFound(Transaction& transaction, const PublishedItem& item);

/// What is not there yet and still wanted, by id, at most `limit`, after the entry `after`.
std::vector<Publication> Missing(Transaction& transaction, long long after, int limit);

/// What is to be removed, of one job where given, after what dead processes published and no write-back kept
/// was marked so.
std::vector<Publication> TakeUnwanted(Transaction& transaction, std::optional<int> job);

}  // namespace zelvek::publications
