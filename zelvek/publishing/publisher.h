#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

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
    Publisher(Store& store, std::filesystem::path answers, dns::Backend* records);

    /// `content` is an answer file's; a record's value is part of `item`. What is refused leaves nothing
    /// recorded; a record that exists because we have published it passes to the newest publisher, with that
    /// error of code kExists. Errors: those of answers::Create and dns::Backend::AddTxt.
    void Publish(const Process& publisher, const std::string& user, const publications::PublishedItem& item,
                 const std::string& content);

    /// Takes it back, unless another job has published the same. What is not there is no error. After a
    /// failure it is tried again by every sweep. Errors: those of answers::Remove and
    /// dns::Backend::RemoveTxt.
    void Withdraw(const Process& caller, const publications::PublishedItem& item);

    /// Takes back what is unwanted (of one job, where given). Failures are logged and tried again by the next
    /// call.
    void RemoveUnwanted(std::optional<int> job = std::nullopt);

private:
    void Perform(const publications::PublishedItem& item, const std::string& content);
    void Revoke(const publications::PublishedItem& item);
    bool TryRemove(const publications::Publication& entry);
    void Remove(const publications::Publication& entry);
    std::mutex& LockOf(const publications::PublishedItem& item);
    dns::Backend& Records();

    Store& store_;
    std::filesystem::path answers_;
    dns::Backend* records_;
    // Held from the change of an item's entry to the change outside: otherwise a sweep could remove an item
    // that is just being published again.
    std::mutex answers_mutex_;
    std::mutex records_mutex_;
    std::mutex last_failure_mutex_;
    std::string last_failure_;
};

}  // namespace zelvek
