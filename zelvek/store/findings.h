#pragma once

#include <string>
#include <vector>

#include "zelvek/store/store.h"

/// What an examination of a failed check of names has found. Every function works inside the caller's
/// transaction.
namespace zelvek::findings {

struct Finding {
    std::string name;    // the host, or the record
    std::string place;   // the address, or the name server; empty where there is none
    std::string state;   // a word: see base/finding_state.h
    std::string detail;  // what stood there, or why nothing did; one line
    std::string time;    // when somebody looked
};

/// The job is to be examined: its run has ended at that time, with names that were not proved. What earlier
/// examinations have found is forgotten.
void Ask(Transaction& transaction, int job, const std::string& time);

/// Takes those that were asked for first, at most `limit`: each is given once.
std::vector<int> TakeAsked(Transaction& transaction, int limit);

/// What was found, instead of what was found before.
void Put(Transaction& transaction, int job, const std::vector<Finding>& found);

/// In the order of `Put`.
std::vector<Finding> Of(Transaction& transaction, int job);

/// The job is neither examined, nor has anything been found.
void Forget(Transaction& transaction, int job);

}  // namespace zelvek::findings
