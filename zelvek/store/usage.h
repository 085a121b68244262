#pragma once

#include <optional>
#include <string>

#include "zelvek/store/store.h"

/// What jobs have used of that which an authority limits. Every function works inside the caller's
/// transaction.
namespace zelvek::usage {

enum class Kind {
    kOrder,    // an order; its subject is the account's URL
    kFailure,  // a failed authorization; its subject is the name
};

struct Use {
    Kind kind;
    std::string subject;
    std::string time;
    bool open;  // it may turn out not to be one: a run is under way
};

/// The job has used that.
void Note(Transaction& transaction, int job, const Use& use);

/// The job's run is over: what is open of it was no use.
void DropOpen(Transaction& transaction, int job);

/// Nobody knows how the job's run ended: its open uses of this kind count.
void CountOpen(Transaction& transaction, int job, Kind kind);

/// The time of the subject's use that has `newer` newer ones, if it is later than `since`.
std::optional<std::string> TimeOf(Transaction& transaction, Kind kind, const std::string& subject,
                                  const std::string& since, int newer);

/// How many times the subject has used it after `since`, counted up to `most`.
int CountSince(Transaction& transaction, Kind kind, const std::string& subject, const std::string& since,
               int most);

/// Forgets at most `limit` uses that are older than `time`.
void RemoveOlder(Transaction& transaction, const std::string& time, int limit);

}  // namespace zelvek::usage
