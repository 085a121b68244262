#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vek/date.h"
#include "zelvek/base/periodic.h"
#include "zelvek/notices/channels.h"
#include "zelvek/notices/letter.h"
#include "zelvek/notices/texts.h"
#include "zelvek/store/deliveries.h"

namespace zelvek::notices {

/// Tells people what is raised: takes what waits in the store, and hands one digest for each recipient to
/// mail, a command, or both. A digest that is not accepted is tried again with growing pauses. Nothing slow
/// is done inside a transaction.
///
/// What waits when a delivery begins is one digest. Before it is handed over that is noted in the store: a
/// service that is killed from there on does not know whether it was accepted, and does not hand it over
/// again; the next digest says how many notifications may be missing. One that was not handed over yet is
/// told by the next service. Each trial of one digest has the same Message-ID.
class Notifier {
public:
    struct Settings {
        std::string administrator = {};        // address; gets also what has no other recipient
        std::filesystem::path addresses = {};  // file of lines "user=address"
        std::string sendmail = "/usr/sbin/sendmail";
        std::string smtp = {};               // URL; instead of sendmail
        std::string from = {};               // address; empty for the user "zelvek" of this machine
        std::string command = {};            // gets everything
        std::chrono::seconds interval{600};  // between two digests of one recipient
        std::chrono::seconds limit{60};      // of one delivery
        std::filesystem::path texts = {};    // empty: the built-in ones
    };

    /// Errors: Error for settings that cannot be used, a file that cannot be read included.
    Notifier(Store& store, Settings settings);

    /// Waits for the delivery under way, if there is one; no other one is begun.
    ~Notifier();
    Notifier(const Notifier&) = delete;
    Notifier& operator=(const Notifier&) = delete;

    /// What settings come to: the files read, the ways made.
    struct Means;

    /// Errors: as the constructor.
    static std::shared_ptr<Means> MeansOf(Settings settings);

    /// Delivers by these from the next look on: recipients of what waits are found anew. Safe from any
    /// thread.
    void Change(std::shared_ptr<Means> means);

    /// Delivers on a thread of its own from now on, looking that often.
    void Start(std::chrono::milliseconds look);

    /// What is due at `now`.
    void DeliverDue(const vek_date::DateTime& now);

private:
    /// Users and their addresses; the old ones stay where the file cannot be read any more.
    void ReadAddresses();
    void GiveUpInterrupted();
    void TakeMeans();
    bool HasNew(const std::string& route);
    bool RouteSome(const std::string& route, const vek_date::DateTime& now);
    void RouteNew(const vek_date::DateTime& now);
    std::vector<std::string> RecipientsFor(const std::string& owner, const std::string& route) const;
    void Deliver(deliveries::Recipient recipient, const vek_date::DateTime& now);
    std::optional<Digest> Begin(deliveries::Recipient& recipient);
    Handover HandOver(const deliveries::Recipient& recipient, const Digest& digest,
                      const vek_date::DateTime& now);
    void RecordEnd(const vek_date::DateTime& now);
    std::chrono::seconds PauseAfter(int failures) const;

    Store& store_;
    std::shared_ptr<Means> means_;
    std::mutex next_mutex_;
    std::shared_ptr<Means> next_;                                      // not taken over yet
    std::optional<std::pair<deliveries::Recipient, Handover>> ended_;  // not recorded yet
    std::atomic<bool> ending_ = false;
    std::optional<Periodic> periodic_;
};

/// The lines "user=address" of a file, as the service's configuration is written. Errors: Error, with file
/// and line.
std::map<std::string, std::string> ReadAddressFile(const std::filesystem::path& file);

/// Errors: Error for settings that a Notifier cannot use, as far as can be said without delivering.
void CheckSettings(const Notifier::Settings& settings);

}  // namespace zelvek::notices
