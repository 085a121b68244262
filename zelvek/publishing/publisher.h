#pragma once

#include <array>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "zelvek/base/error.h"
#include "zelvek/publishing/dns_backend.h"
#include "zelvek/store/publications.h"
#include "zelvek/store/store.h"

namespace zelvek {

/// Publishes answer files and TXT records for processes, and takes back what they leave behind. Every
/// publication is recorded before it is made and forgotten after it is gone, so that nothing stays outside
/// unknown when the service or the publisher is killed in between.
class Publisher {
public:
    /// `records` may be null: no DNS back end.
    Publisher(Store& store, std::filesystem::path answers, std::shared_ptr<dns::Backend> records);

    /// Records are written and removed there from now on; what is under way goes on where it began.
    void UseRecords(std::shared_ptr<dns::Backend> records);

    /// The DNS back end; null for none.
    std::shared_ptr<dns::Backend> records() const;

    /// `content` is an answer file's; a record's value is part of `item`. A publication that fails for a
    /// reason that passes (Code::kUnavailable) is no error: it is tried again by every sweep until it is
    /// there or unwanted. What is refused leaves nothing recorded. A record that exists already, with that
    /// error of code kExists, is the job's to withdraw; what else ends the job leaves it. Errors: the others
    /// of answers::Create and dns::Backend::AddTxt.
    void Publish(const Process& publisher, const std::string& user, const publications::PublishedItem& item,
                 const std::string& content);

    /// What a job's run withdraws goes with that run's write-back: a run that dies before has withdrawn
    /// nothing. Anything else is removed at once. What is not there is no error. After a failure it is tried
    /// again by every sweep. Errors: those of answers::Remove and dns::Backend::RemoveTxt.
    void Withdraw(const Process& caller, const publications::PublishedItem& item);

    /// Removes what is unwanted (of one job, where given). Failures are logged and tried again by the next
    /// call.
    void RemoveUnwanted(std::optional<int> job = std::nullopt);

    /// Publishes what could not be published before. Failures are logged and tried again by the next call.
    void PublishMissing();

private:
    enum class Outcome { kDone, kUnavailable, kFailed };

    void Perform(const publications::PublishedItem& item, const std::string& content);
    void Revoke(const publications::PublishedItem& item);
    void NoteWhenSeen(const publications::PublishedItem& item);
    Outcome TryPublishAgain(const publications::Publication& entry);
    Outcome TryRemove(const publications::Publication& entry);
    Outcome Report(const std::string& deed, const publications::PublishedItem& item, const Error& error);
    void Remove(const publications::Publication& entry);
    std::mutex& LockOf(const publications::PublishedItem& item);
    std::shared_ptr<dns::Backend> Records() const;

    Store& store_;
    std::filesystem::path answers_;
    mutable std::mutex records_mutex_;
    std::shared_ptr<dns::Backend> records_;
    // One lock for a few items, held from the change of an item's entry to the change outside: otherwise a
    // sweep could remove an item that is just being published again. Items of other locks go on while a name
    // server is slow.
    std::array<std::mutex, 64> locks_;
    std::mutex last_failures_mutex_;
    std::map<std::string, std::string> last_failures_;  // by item
};

}  // namespace zelvek
