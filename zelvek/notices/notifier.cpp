#include "zelvek/notices/notifier.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <exception>
#include <set>
#include <utility>

#include "vek/str.h"
#include "zelvek/base/config_file.h"
#include "zelvek/base/error.h"
#include "zelvek/base/log.h"
#include "zelvek/base/text.h"
#include "zelvek/notices/mail.h"
#include "zelvek/store/problems.h"

namespace zelvek::notices {

namespace {

using deliveries::Recipient;
using std::chrono::seconds;
using vek_date::DateTime;

// A recipient's name in the store begins with the way to it.
const std::string kMail = "mail:";
const std::string kCommand = "command:";
const std::string kAdministrator = "root";

constexpr int kRoutedAtOnce = 500;
constexpr int kRecipientsAtOnce = 20;
constexpr int kMostOfDigest = 1000;
constexpr std::size_t kAttemptBytes = 8;
constexpr seconds kLongestPause{3600};
constexpr int kMostDoublings = 20;

std::string After(const DateTime& now, seconds pause) {
    return DateTime(now).AddSeconds(static_cast<int>(pause.count())).AsDateTime();
}

std::string OwnAddress() {
    std::array<char, 256> name{};
    const bool named = ::gethostname(name.data(), name.size() - 1) == 0;
    const std::string address = std::string("zelvek@") + name.data();
    return named && IsAddress(address) ? address : "zelvek@localhost";
}

DateTime Later(const DateTime& now, std::chrono::steady_clock::time_point start) {
    const auto taken = std::chrono::duration_cast<seconds>(std::chrono::steady_clock::now() - start);
    return DateTime(now).AddSeconds(static_cast<int>(taken.count()));
}

void CheckAddress(const std::string& option, const std::string& address) {
    if (!IsAddress(address))
        throw Error(Code::kValue, option + ": \"" + Printable(address) + "\" is no address user@host");
}

}  // namespace

std::map<std::string, std::string> ReadAddressFile(const std::filesystem::path& file) {
    std::map<std::string, std::string> addresses;
    for (const ConfigLine& line : ReadConfigFile(file.string())) {
        const std::string place = file.string() + ":" + std::to_string(line.number) + ": ";
        if (!IsAddress(line.value))
            throw Error(Code::kValue, place + "\"" + Printable(line.value) + "\" is no address user@host");
        if (!addresses.emplace(line.name, line.value).second)
            throw Error(Code::kValue, place + Printable(line.name) + " has an address already");
    }
    return addresses;
}

void CheckSettings(const Notifier::Settings& settings) {
    if (!settings.texts.empty()) Texts{settings.texts};
    if (!settings.administrator.empty()) CheckAddress("--notify-mail", settings.administrator);
    if (!settings.addresses.empty()) ReadAddressFile(settings.addresses);
    if (!settings.from.empty()) CheckAddress("--notify-from", settings.from);
    if (!settings.smtp.empty() && !IsSmtpUrl(settings.smtp))
        throw Error(Code::kValue,
                    "--notify-smtp takes smtp://host:port or smtps://host:port, without a user");
}

struct Notifier::Means {
    Settings settings;
    Texts texts = {};
    std::map<std::string, std::string> addresses = {};
    Channel mail = {};     // empty where nobody has an address
    Channel command = {};  // empty for none
};

std::shared_ptr<Notifier::Means> Notifier::MeansOf(Settings settings) {
    CheckSettings(settings);
    auto means = std::make_shared<Means>(Means{std::move(settings)});
    Settings& used = means->settings;
    if (!used.texts.empty()) means->texts = Texts(used.texts);
    if (!used.addresses.empty()) means->addresses = ReadAddressFile(used.addresses);
    if (used.from.empty()) used.from = OwnAddress();
    if (!used.administrator.empty() || !used.addresses.empty()) {
        means->mail = used.smtp.empty() ? SendmailChannel(used.sendmail, used.limit)
                                        : SmtpChannel(used.smtp, used.limit);
    }
    if (!used.command.empty()) means->command = CommandChannel(used.command, used.limit);
    return means;
}

Notifier::Notifier(Store& store, Settings settings) : store_(store), means_(MeansOf(std::move(settings))) {
    GiveUpInterrupted();
}

Notifier::~Notifier() {
    ending_ = true;
    periodic_.reset();
}

void Notifier::Start(std::chrono::milliseconds look) {
    periodic_.emplace("notices", look, [this] { DeliverDue(DateTime()); });
}

void Notifier::Change(std::shared_ptr<Means> means) {
    const std::lock_guard lock(next_mutex_);
    next_.swap(means);
}

/// Between two deliveries: nothing is under way to anybody. Where the store cannot say so now, the next look
/// tries again.
void Notifier::TakeMeans() {
    const std::lock_guard lock(next_mutex_);
    if (!next_) return;
    Transaction transaction(store_);
    deliveries::Reroute(transaction, kMail);
    deliveries::Reroute(transaction, kCommand);
    transaction.Commit();
    means_ = std::exchange(next_, nullptr);
}

/// Somebody may have other addresses than the service before this one knew.
void Notifier::GiveUpInterrupted() {
    Transaction transaction(store_);
    for (const std::string& name : deliveries::GiveUpInterrupted(transaction))
        Log("notices: it is not known whether what was under way to " + name + " has arrived");
    deliveries::Reroute(transaction, kMail);
    deliveries::Reroute(transaction, kCommand);
    transaction.Commit();
}

void Notifier::ReadAddresses() {
    if (means_->settings.addresses.empty()) return;
    try {
        means_->addresses = ReadAddressFile(means_->settings.addresses);
    } catch (const Error& error) {
        Log(std::string("notices: ") + error.what());
    }
}

/// By mail whoever has an address, else the administrator; the command everybody.
std::vector<std::string> Notifier::RecipientsFor(const std::string& owner, const std::string& route) const {
    std::vector<std::string> recipients;
    if (means_->mail && route != kCommand) {
        const auto found = means_->addresses.find(owner);
        const std::string& address =
            found != means_->addresses.end() ? found->second : means_->settings.administrator;
        if (!address.empty()) recipients.push_back(kMail + address);
    }
    if (means_->command && route != kMail) recipients.push_back(kCommand + owner);
    return recipients;
}

/// In steps, so that nobody waits long for the store. Says whether there may be more.
bool Notifier::RouteSome(const std::string& route, const DateTime& now) {
    Transaction transaction(store_);
    const auto entries = deliveries::Unrouted(transaction, route, kRoutedAtOnce);
    // What belongs together comes within a short while.
    const std::string first = After(now, PauseAfter(0));
    for (const auto& entry : entries)
        deliveries::Route(transaction, entry, RecipientsFor(entry.owner, route), first);
    transaction.Commit();
    return entries.size() == kRoutedAtOnce;
}

bool Notifier::HasNew(const std::string& route) {
    Transaction transaction(store_);
    return !deliveries::Unrouted(transaction, route, 1).empty();
}

void Notifier::RouteNew(const DateTime& now) {
    for (const std::string& route : {std::string(), kMail, kCommand}) {
        if (!HasNew(route)) continue;
        ReadAddresses();
        while (RouteSome(route, now)) {
        }
    }
}

/// A tenth of the interval, up to a minute, doubled by each failure, up to an hour.
seconds Notifier::PauseAfter(int failures) const {
    const seconds first = std::min(means_->settings.interval / 10, seconds{60});
    if (failures == 0) return first;
    return std::min(std::max(first, seconds{1}) * (1 << std::min(failures - 1, kMostDoublings)),
                    kLongestPause);
}

void Notifier::DeliverDue(const DateTime& now) {
    RecordEnd(now);
    TakeMeans();
    RouteNew(now);
    std::vector<Recipient> due;
    {
        Transaction transaction(store_);
        // What lies later than any pause can mean was written by a clock that has been set back since.
        due = deliveries::Due(transaction, now.AsDateTime(),
                              After(now, std::max(means_->settings.interval, kLongestPause) + kLongestPause),
                              kRecipientsAtOnce);
    }
    for (Recipient& recipient : due) {
        if (ending_) return;
        Deliver(std::move(recipient), now);
    }
}

void Notifier::Deliver(Recipient recipient, const DateTime& now) {
    const auto start = std::chrono::steady_clock::now();
    const std::optional<Digest> digest = Begin(recipient);
    if (!digest) return;
    ended_ = {recipient, HandOver(recipient, *digest, now)};
    RecordEnd(Later(now, start));
}

std::optional<Digest> Notifier::Begin(Recipient& recipient) {
    Digest digest{{}, {}, recipient.doubtful};
    Transaction transaction(store_);
    recipient.digest = deliveries::Begin(transaction, recipient, str::hex::Encode(str::Random(kAttemptBytes)),
                                         kMostOfDigest);
    digest.attempt = recipient.digest;
    if (!recipient.digest.empty()) {
        for (const long long number : deliveries::ProblemsOf(transaction, recipient.name, recipient.digest)) {
            if (auto problem = problems::Find(transaction, number))
                digest.notices.push_back(std::move(*problem));
        }
        // Everything in it may have been forgotten by age.
        if (digest.notices.empty()) deliveries::Finish(transaction, recipient, recipient.next);
    }
    transaction.Commit();
    if (digest.notices.empty()) return std::nullopt;
    Arrange(digest);
    return digest;
}

Handover Notifier::HandOver(const Recipient& recipient, const Digest& digest, const DateTime& now) try {
    const auto handing = [&] {
        Transaction transaction(store_);
        deliveries::SetHanded(transaction, recipient.name);
        transaction.Commit();
    };
    if (recipient.name.starts_with(kCommand)) {
        if (!means_->command) return {Handover::Outcome::kRefused, "there is no --notify-command any more"};
        const std::string name = recipient.name.substr(kCommand.size());
        const auto found = means_->addresses.find(name);
        const std::string address = found != means_->addresses.end() ? found->second
                                    : name == kAdministrator         ? means_->settings.administrator
                                                                     : "";
        return means_->command({{}, {}, JsonOf(digest, means_->texts, name, address)}, handing);
    }
    if (!means_->mail) return {Handover::Outcome::kRefused, "nobody is told by mail any more"};
    const Letter letter = LetterOf(digest, means_->texts);
    const std::string to = recipient.name.substr(kMail.size());
    const std::string domain = means_->settings.from.substr(means_->settings.from.find('@') + 1);
    const std::string id = "zelvek." + digest.attempt + "@" + domain;
    return means_->mail({means_->settings.from, to,
                         MessageOf({means_->settings.from, to, letter.subject, letter.text, id, now})},
                        handing);
} catch (const std::exception& error) {
    return {Handover::Outcome::kRefused, error.what()};
}

/// Where the store could not take it, the next call tries again before anything else is handed over.
void Notifier::RecordEnd(const DateTime& now) {
    if (!ended_) return;
    const auto& [recipient, handover] = *ended_;
    const std::string later = After(now, PauseAfter(recipient.failures + 1));
    Transaction transaction(store_);
    switch (handover.outcome) {
        case Handover::Outcome::kAccepted:
            deliveries::Finish(transaction, recipient, After(now, means_->settings.interval));
            break;
        case Handover::Outcome::kRefused: deliveries::Postpone(transaction, recipient, later); break;
        case Handover::Outcome::kUnknown: deliveries::Repeat(transaction, recipient, later); break;
    }
    transaction.Commit();
    const bool accepted = handover.outcome == Handover::Outcome::kAccepted;
    Log("notices: digest " + recipient.digest + " for " + recipient.name + ": " +
        (accepted ? "delivered" : handover.reason + "; next trial at " + later));
    ended_.reset();
}

}  // namespace zelvek::notices
