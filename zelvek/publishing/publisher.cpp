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
using publications::Thing;

namespace {

bool Exists(const std::exception& error) {
    const auto* refused = dynamic_cast<const Error*>(&error);
    return refused != nullptr && refused->code() == Code::kExists;
}

/// Whether somebody else than `job` wants the thing to stay.
bool WantedByOthers(const std::vector<Publication>& entries, int job) {
    return std::any_of(entries.begin(), entries.end(),
                       [&](const Publication& entry) { return entry.job != job && !entry.unwanted; });
}

bool IsUnwanted(const std::vector<Publication>& entries, int job) {
    return std::any_of(entries.begin(), entries.end(),
                       [&](const Publication& entry) { return entry.job == job && entry.unwanted; });
}

}  // namespace

Publications::Publications(Store& store, std::filesystem::path answers, dns::Backend* records)
    : store_(store), answers_(std::move(answers)), records_(records) {}

void Publications::Publish(const Process& publisher, const std::string& user, const Thing& thing,
                           const std::string& content) {
    const std::lock_guard lock(LockOf(thing));
    Publication entry{0, thing, user, 0, publisher, false, false};
    std::optional<Publication> before;
    bool ours = false;
    {
        Transaction transaction(store_);
        ours = !publications::Of(transaction.database(), thing).empty();
        entry.job = jobs::LastRead(transaction.database(), publisher);
        before = publications::Put(transaction.database(), entry);
        transaction.Commit();
    }
    try {
        Perform(thing, content);
    } catch (const std::exception& error) {
        if (ours && Exists(error)) throw;
        Transaction transaction(store_);
        if (before) {
            publications::Restore(transaction.database(), *before);
        } else {
            publications::Drop(transaction.database(), thing, entry.job);
        }
        transaction.Commit();
        throw;
    }
}

void Publications::Withdraw(const Process& caller, const Thing& thing) {
    const std::lock_guard lock(LockOf(thing));
    std::vector<Publication> entries;
    {
        Transaction transaction(store_);
        const int job = jobs::LastRead(transaction.database(), caller);
        entries = publications::Of(transaction.database(), thing);
        const bool own = std::any_of(entries.begin(), entries.end(),
                                     [&](const Publication& entry) { return entry.job == job; });
        if (own && WantedByOthers(entries, job)) {
            publications::Drop(transaction.database(), thing, job);
            transaction.Commit();
            return;
        }
        for (Publication& entry : entries) {
            entry.unwanted = true;
            publications::Restore(transaction.database(), entry);
        }
        transaction.Commit();
    }
    Revoke(thing);
    Transaction transaction(store_);
    for (const Publication& entry : entries) publications::Drop(transaction.database(), thing, entry.job);
    transaction.Commit();
}

void Publications::RemoveUnwanted(std::optional<int> job) {
    std::vector<Publication> entries;
    {
        Transaction transaction(store_);
        publications::SetUnwantedOfDead(transaction.database());
        entries = publications::All(transaction.database());
        transaction.Commit();
    }
    bool failed_answer = false;
    bool failed_record = false;
    for (const Publication& entry : entries) {
        if (!entry.unwanted || (job && entry.job != *job)) continue;
        // Where one failed, the others would fail likewise, each after its own time limit.
        bool& failed = entry.thing.IsAnswer() ? failed_answer : failed_record;
        failed = failed || !TryRemove(entry);
    }
}

bool Publications::TryRemove(const Publication& entry) {
    try {
        Remove(entry);
        return true;
    } catch (const std::exception& error) {
        const std::string failure = "removing " + entry.thing.name + ": " + error.what();
        const std::lock_guard lock(last_failure_mutex_);
        if (failure != last_failure_) Log(failure);  // once, not at every sweep
        last_failure_ = failure;
        return false;
    }
}

void Publications::Remove(const Publication& entry) {
    const std::lock_guard lock(LockOf(entry.thing));
    std::vector<Publication> entries;
    {
        Transaction transaction(store_);
        entries = publications::Of(transaction.database(), entry.thing);
    }
    if (!IsUnwanted(entries, entry.job)) return;  // published anew meanwhile
    if (!WantedByOthers(entries, entry.job)) Revoke(entry.thing);
    Transaction transaction(store_);
    publications::Drop(transaction.database(), entry.thing, entry.job);
    transaction.Commit();
}

void Publications::Perform(const Thing& thing, const std::string& content) {
    if (thing.IsAnswer()) {
        answers::Create(answers_, thing.name, content);
    } else {
        Records().AddTxt(thing.zone, thing.name, thing.value);
    }
}

void Publications::Revoke(const Thing& thing) {
    if (thing.IsAnswer()) {
        answers::Remove(answers_, thing.name);
    } else {
        Records().RemoveTxt(thing.zone, thing.name, thing.value);
    }
}

std::mutex& Publications::LockOf(const Thing& thing) {
    return thing.IsAnswer() ? answers_mutex_ : records_mutex_;
}

dns::Backend& Publications::Records() {
    if (records_ == nullptr) {
        throw Error(Code::kDns, "domain.record", "",
                    "no DNS back end is configured: give --dns-server or --dns-records-file");
    }
    return *records_;
}

}  // namespace zelvek
