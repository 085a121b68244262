#include "zelvek/publishing/publisher.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "zelvek/base/error.h"
#include "zelvek/base/log.h"
#include "zelvek/publishing/answers.h"
#include "zelvek/store/jobs.h"

namespace zelvek {

using publications::Publication;
using publications::PublishedItem;

namespace {

bool Exists(const std::exception& error) {
    const auto* refused = dynamic_cast<const Error*>(&error);
    return refused != nullptr && refused->code() == Code::kExists;
}

/// Whether somebody else than `job` wants the item to stay.
bool WantedByOthers(const std::vector<Publication>& entries, int job) {
    return std::any_of(entries.begin(), entries.end(),
                       [&](const Publication& entry) { return entry.job != job && !entry.unwanted; });
}

bool IsUnwanted(const std::vector<Publication>& entries, int job) {
    return std::any_of(entries.begin(), entries.end(),
                       [&](const Publication& entry) { return entry.job == job && entry.unwanted; });
}

}  // namespace

Publisher::Publisher(Store& store, std::filesystem::path answers, dns::Backend* records)
    : store_(store), answers_(std::move(answers)), records_(records) {}

void Publisher::Publish(const Process& publisher, const std::string& user, const PublishedItem& item,
                        const std::string& content) {
    const std::lock_guard lock(LockOf(item));
    Publication entry{0, item, user, 0, publisher, false, false};
    std::optional<Publication> before;
    bool ours = false;
    {
        Transaction transaction(store_);
        ours = !publications::Of(transaction, item).empty();
        entry.job = jobs::JobOf(transaction, publisher);
        before = publications::Put(transaction, entry);
        transaction.Commit();
    }
    try {
        Perform(item, content);
    } catch (const std::exception& error) {
        if (ours && Exists(error)) throw;
        Transaction transaction(store_);
        if (before) {
            publications::Restore(transaction, *before);
        } else {
            publications::Drop(transaction, item, entry.job);
        }
        transaction.Commit();
        throw;
    }
}

void Publisher::Withdraw(const Process& caller, const PublishedItem& item) {
    const std::lock_guard lock(LockOf(item));
    std::vector<Publication> entries;
    {
        Transaction transaction(store_);
        const int job = jobs::JobOf(transaction, caller);
        entries = publications::Of(transaction, item);
        const bool own = std::any_of(entries.begin(), entries.end(),
                                     [&](const Publication& entry) { return entry.job == job; });
        if (own && WantedByOthers(entries, job)) {
            publications::Drop(transaction, item, job);
            transaction.Commit();
            return;
        }
        for (Publication& entry : entries) {
            entry.unwanted = true;
            publications::Restore(transaction, entry);
        }
        transaction.Commit();
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
    bool failed_answer = false;
    bool failed_record = false;
    for (const Publication& entry : entries) {
        // Where one failed, the others would fail likewise, each after its own time limit.
        bool& failed = entry.item.IsAnswer() ? failed_answer : failed_record;
        failed = failed || !TryRemove(entry);
    }
}

bool Publisher::TryRemove(const Publication& entry) {
    try {
        Remove(entry);
        return true;
    } catch (const std::exception& error) {
        const std::string failure = "removing " + entry.item.name + ": " + error.what();
        const std::lock_guard lock(last_failure_mutex_);
        if (failure != last_failure_) Log(failure);  // once, not at every sweep
        last_failure_ = failure;
        return false;
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
    if (!WantedByOthers(entries, entry.job)) Revoke(entry.item);
    Transaction transaction(store_);
    publications::Drop(transaction, entry.item, entry.job);
    transaction.Commit();
}

void Publisher::Perform(const PublishedItem& item, const std::string& content) {
    if (item.IsAnswer()) {
        answers::Create(answers_, item.name, content);
    } else {
        Records().AddTxt(item.zone, item.name, item.value);
    }
}

void Publisher::Revoke(const PublishedItem& item) {
    if (item.IsAnswer()) {
        answers::Remove(answers_, item.name);
    } else {
        Records().RemoveTxt(item.zone, item.name, item.value);
    }
}

std::mutex& Publisher::LockOf(const PublishedItem& item) {
    return item.IsAnswer() ? answers_mutex_ : records_mutex_;
}

dns::Backend& Publisher::Records() {
    if (records_ == nullptr) {
        throw Error(Code::kDns, "domain.record", "",
                    "no DNS back end is configured: give --dns-server or --dns-records-file");
    }
    return *records_;
}

}  // namespace zelvek
