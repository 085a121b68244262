#pragma once

#include <string>
#include <vector>

#include "zelvek/store/store.h"

/// Who has done what by the service's page. Every function works inside the caller's transaction.
namespace zelvek::page_deeds {

struct Deed {
    long long number = 0;  // given by `Add`
    std::string time = {};
    std::string who = {};
    std::string what = {};
};

void Add(Transaction& transaction, const Deed& deed);

/// Those with numbers below `before`, the newest first, at most `limit`.
std::vector<Deed> Newest(Transaction& transaction, long long before, int limit);

/// Removes those that are older than `time`, the oldest first, at most `limit`.
void RemoveOlder(Transaction& transaction, const std::string& time, int limit);

}  // namespace zelvek::page_deeds
