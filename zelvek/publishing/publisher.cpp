#include "zelvek/publishing/publisher.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>
#include <vector>

#include "vek/date.h"
#include "zelvek/base/error.h"
#include "zelvek/base/log.h"
#include "zelvek/publishing/answers.h"
#include "zelvek/publishing/dns_backends.h"
#include "zelvek/store/runs.h"

namespace zelvek {

using publications::Publication;
using publications::PublishedItem;

namespace {

// What is missing and tried again in one sweep.
constexpr int kTriedAtOnce = 100;

// Name servers remember no longer that something is not there (RFC 2308 section 5).
constexpr std::chrono::seconds kLongestNegativeTtl{3 * 3600};
constexpr std::chrono::seconds kMargin{5};

/// Whether somebody else than `job` wants the item to stay.
bool WantedByOthers(const std::vector<Publication>& entries, int job) {
    return std::any_of(entries.begin(), entries.end(),
                       [&](const Publication& entry) { return entry.job != job && !entry.unwanted; });
}

bool IsFound(const std::vector<Publication>& entries) {
    return std::any_of(entries.begin(), entries.end(), [](const Publication& entry) { return entry.found; });
}

bool IsUnwanted(const std::vector<Publication>& entries, int job) {
    return std::any_of(entries.begin(), entries.end(),
                       [&](const Publication& entry) { return entry.job == job && entry.unwanted; });
}

}  // namespace

Publisher::Publisher(Store& store, std::filesystem::path answers, std::shared_ptr<dns::Backend> records)
    : store_(store), answers_(std::move(answers)), records_(std::move(records)) {}

void Publisher::UseRecords(std::shared_ptr<dns::Backend> records) {
    const std::lock_guard lock(records_mutex_);
    records_.swap(records);
}

std::shared_ptr<dns::Backend> Publisher::records() const {
    const std::lock_guard lock(records_mutex_);
    return records_;
}

void Publisher::Publish(const Process& publisher, const std::string& user, const PublishedItem& item,
                        const std::string& content) {
    const std::lock_guard lock(LockOf(item));
    Publication entry;
    entry.item = item;
    entry.user_name = user;
    entry.publisher = publisher;
    std::optional<Publication> before;
    std::vector<Publication> known;
    {
        Transaction transaction(store_);
        known = publications::Of(transaction, item);
        entry.job = runs::JobOf(transaction, publisher);
        entry.found = IsFound(known);
        before = publications::Put(transaction, entry);
        transaction.Commit();
    }
    try {
        Perform(item, content);
    } catch (const Error& error) {
        const bool passes = error.code() == Code::kUnavailable;
        Transaction transaction(store_);
        if (error.code() == Code::kExists) {
            if (known.empty()) publications::SetFound(transaction, item);
        } else if (passes) {
            publications::SetMissing(transaction, item, true);
        } else if (before) {
            publications::Restore(transaction, *before);
        } else {
            publications::Drop(transaction, item, entry.job);
        }
        transaction.Commit();
        if (!passes) throw;
        Log("publishing " + item.name + ", to be tried again: " + error.what());
        return;
    }
    NoteWhenSeen(item);
}

/// A name server that was asked too early says "no" for a while, and so does one that asks it.
void Publisher::NoteWhenSeen(const PublishedItem& item) {
    if (item.IsAnswer()) return;
    std::chrono::seconds ttl{0};
    try {
        ttl = std::clamp(Records()->NegativeTtl(item.zone), std::chrono::seconds{0}, kLongestNegativeTtl);
    } catch (const Error& error) {
        Log("asking how long the zone " + item.zone + " is remembered: " + error.what());
    }
    if (ttl == std::chrono::seconds{0}) return;
    const std::chrono::seconds longer = ttl + kMargin;
    Transaction transaction(store_);
    publications::SetSeenByAll(
        transaction, item, vek_date::DateTime().AddSeconds(static_cast<int>(longer.count())).AsDateTime());
    transaction.Commit();
}

void Publisher::Withdraw(const Process& caller, const PublishedItem& item) {
    const std::lock_guard lock(LockOf(item));
    std::vector<Publication> entries;
    {
        Transaction transaction(store_);
        const int job = runs::JobOf(transaction, caller);
        // The run may still die: then its job needs the item again.
        const bool later = job != 0 && publications::Withdraw(transaction, item, job, caller);
        if (!later) entries = publications::Of(transaction, item);
        for (Publication& entry : entries) {
            entry.unwanted = true;
            publications::Restore(transaction, entry);
        }
        transaction.Commit();
        if (later) return;
    }
    Revoke(item);
    Transaction transaction(store_);
    for (const Publication& entry : entries) publications::Drop(transaction, item, entry.job);
    transaction.Commit();
}

void Publisher::RemoveUnwanted(std::optional<int> job) {
    std::vector<Publication> entries;
    {
        Transaction transaction(store_);
        entries = publications::TakeUnwanted(transaction, job);
        transaction.Commit();
    }
    bool server_is_away = false;
    for (const Publication& entry : entries) {
        // Each record would wait for the same silence. Everything else fails alone: one item that cannot be
        // removed keeps no other.
        if (server_is_away && !entry.item.IsAnswer()) continue;
        server_is_away = TryRemove(entry) == Outcome::kUnavailable || server_is_away;
    }
}

void Publisher::PublishMissing() {
    std::vector<Publication> entries;
    {
        Transaction transaction(store_);
        entries = publications::Missing(transaction, 0, kTriedAtOnce);
    }
    for (const Publication& entry : entries) {
        if (TryPublishAgain(entry) == Outcome::kUnavailable) return;
    }
}

Publisher::Outcome Publisher::TryPublishAgain(const Publication& entry) {
    const std::lock_guard lock(LockOf(entry.item));
    Outcome outcome = Outcome::kDone;
    try {
        Perform(entry.item, "");
    } catch (const Error& error) {
        if (error.code() != Code::kExists) outcome = Report("publishing", entry.item, error);
    }
    if (outcome != Outcome::kDone) return outcome;
    {
        // Over before the next one begins: it would wait for this one for ever.
        Transaction transaction(store_);
        publications::SetMissing(transaction, entry.item, false);
        transaction.Commit();
    }
    NoteWhenSeen(entry.item);
    return outcome;
}

/// Writes a failure to the log, once as long as it stays the same.
Publisher::Outcome Publisher::Report(const std::string& deed, const PublishedItem& item, const Error& error) {
    const std::string failure = deed + " " + item.name + ": " + error.what();
    const std::lock_guard lock(last_failures_mutex_);
    std::string& last = last_failures_[item.zone + " " + item.name + " " + item.value];
    if (failure != last) Log(failure);
    last = failure;
    return error.code() == Code::kUnavailable ? Outcome::kUnavailable : Outcome::kFailed;
}

Publisher::Outcome Publisher::TryRemove(const Publication& entry) {
    try {
        Remove(entry);
        const std::lock_guard lock(last_failures_mutex_);
        last_failures_.erase(entry.item.zone + " " + entry.item.name + " " + entry.item.value);
        return Outcome::kDone;
    } catch (const Error& error) {
        return Report("removing", entry.item, error);
    }
}

void Publisher::Remove(const Publication& entry) {
    const std::lock_guard lock(LockOf(entry.item));
    std::vector<Publication> entries;
    {
        Transaction transaction(store_);
        entries = publications::Of(transaction, entry.item);
    }
    if (!IsUnwanted(entries, entry.job)) return;  // published anew meanwhile
    if (!WantedByOthers(entries, entry.job) && !IsFound(entries)) Revoke(entry.item);
    Transaction transaction(store_);
    publications::Drop(transaction, entry.item, entry.job);
    transaction.Commit();
}

void Publisher::Perform(const PublishedItem& item, const std::string& content) {
    if (item.IsAnswer()) {
        answers::Create(answers_, item.name, content);
    } else {
        Records()->AddTxt(item.zone, item.name, item.value);
    }
}

void Publisher::Revoke(const PublishedItem& item) {
    if (item.IsAnswer()) {
        answers::Remove(answers_, item.name);
    } else {
        Records()->RemoveTxt(item.zone, item.name, item.value);
    }
}

std::mutex& Publisher::LockOf(const PublishedItem& item) {
    return locks_[std::hash<std::string>{}(item.zone + " " + item.name) % locks_.size()];
}

std::shared_ptr<dns::Backend> Publisher::Records() const {
    auto used = records();
    if (used == nullptr) {
        throw Error(Code::kDns, "domain.record", "",
                    "no DNS back end is configured: give " + dns::SelectingOptions());
    }
    return used;
}

}  // namespace zelvek
