#include "zelvek/examination/examiner.h"

#include <algorithm>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "vek/date.h"
#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/finding_state.h"
#include "zelvek/base/log.h"
#include "zelvek/base/names.h"
#include "zelvek/examination/public_address.h"
#include "zelvek/examination/web_look.h"
#include "zelvek/publishing/dns_record.h"
#include "zelvek/store/jobs.h"

namespace zelvek {

namespace {

using findings::Finding;
using publications::PublishedItem;
using std::chrono::steady_clock;

constexpr int kAtOnce = 4;                 // jobs
constexpr std::size_t kMostNames = 20;     // of a job
constexpr std::size_t kMostAddresses = 4;  // of a name
constexpr std::size_t kMostServers = 8;    // of a zone
constexpr std::size_t kRandomBytes = 16;

template <class Value>
void Shorten(std::vector<Value>& values, std::size_t most) {
    if (values.size() > most) values.erase(values.begin() + static_cast<std::ptrdiff_t>(most), values.end());
}

/// The names that are looked at, canonical. Older versions took names that have no such form.
std::vector<std::string> HostsOf(const Job& job) {
    std::vector<std::string> hosts;
    for (const std::string& name : str::Split(job.aliases, " ")) {
        try {
            hosts.push_back(names::WithoutWildcard(names::Canonical(name)));
        } catch (const Error&) {
            continue;
        }
    }
    Shorten(hosts, kMostNames);
    return hosts;
}

}  // namespace

/// An answer file of our own, as long as this lives. A service that dies meanwhile leaves it to the sweep.
class Examiner::Probe {
public:
    Probe(Publisher& publisher, const Process& self, const std::string& user)
        : publisher_(publisher),
          self_(self),
          item_{"", "probe-" + str::hex::Encode(str::Random(kRandomBytes)), ""},
          content_(str::hex::Encode(str::Random(kRandomBytes))) {
        publisher_.Publish(self_, user, item_, content_);
    }
    ~Probe() {
        try {
            publisher_.Withdraw(self_, item_);
        } catch (const std::exception& error) {
            Log(std::string("withdrawing a probe: ") + error.what());
        }
    }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    const std::string& token() const { return item_.name; }
    const std::string& content() const { return content_; }

private:
    Publisher& publisher_;
    Process self_;
    PublishedItem item_;
    std::string content_;
};

/// One job under examination.
struct Examiner::Patient {
    Job job;
    std::shared_ptr<const Means> means;
    std::vector<PublishedItem> records;  // TXT records that are published for it
    steady_clock::time_point end_by;
    std::vector<Finding> found = {};
    std::unique_ptr<Probe> probe = {};  // where something is there that can be asked for it

    void Note(const std::string& name, const std::string& place, const std::string& state,
              const std::string& detail = "") {
        found.push_back({name, place, state, names::MakeText(detail), vek_date::DateTime().AsDateTime()});
    }
};

Examiner::Examiner(Store& store, Publisher& publisher, Settings settings, Process self)
    : store_(store), publisher_(publisher), means_(MeansOf(std::move(settings))), self_(self) {}

Examiner::Means Examiner::MeansOf(Settings settings) {
    PublicDns dns(settings.resolvers, settings.dns_port);
    return {std::move(settings), std::move(dns)};
}

void Examiner::Change(Settings settings) { means_.Set(MeansOf(std::move(settings))); }

void Examiner::ExamineSome() {
    const auto means = means_.Get();
    if (means->settings.resolvers.empty()) return;
    std::vector<Patient> patients = Take(means);
    {
        std::vector<std::jthread> threads;
        threads.reserve(patients.size());
        for (Patient& patient : patients) threads.emplace_back([&] { Examine(patient); });
    }
    for (const Patient& patient : patients) Keep(patient);
}

std::vector<Examiner::Patient> Examiner::Take(const std::shared_ptr<const Means>& means) {
    std::vector<Patient> patients;
    Transaction transaction(store_);
    for (const int id : findings::TakeAsked(transaction, kAtOnce)) {
        Patient patient{
            jobs::FindShown(transaction, id), means, {}, steady_clock::now() + means->settings.limit};
        for (const auto& entry : publications::OfJob(transaction, id)) {
            if (!entry.item.IsAnswer()) patient.records.push_back(entry.item);
        }
        Shorten(patient.records, kMostNames);
        patients.push_back(std::move(patient));
    }
    transaction.Commit();
    return patients;
}

/// On a thread of its own: nothing may be thrown out of it.
void Examiner::Examine(Patient& patient) const try {
    patient.job.check_type == "dns" ? LookAtRecords(patient) : LookAtWeb(patient);
    patient.probe.reset();
} catch (const std::exception& error) {
    Log("examining job " + std::to_string(patient.job.id) + ": " + error.what());
}

void Examiner::LookAtWeb(Patient& patient) const {
    for (const std::string& host : HostsOf(patient.job)) {
        if (ending_ || steady_clock::now() > patient.end_by) return;
        LookAtHost(patient, host);
    }
}

void Examiner::LookAtHost(Patient& patient, const std::string& host) const {
    auto addresses = patient.means->dns.Addresses(host);
    if (!addresses) return patient.Note(host, "", finding_state::kNotLookedUp);
    if (addresses->empty()) return patient.Note(host, "", finding_state::kNoAddress);
    Shorten(*addresses, kMostAddresses);
    for (const std::string& address : *addresses) {
        if (ending_ || steady_clock::now() > patient.end_by) return;
        // Whoever has the name decides where it points: to no server that only this one reaches.
        if (patient.means->settings.public_only && !IsPublicAddress(address)) {
            patient.Note(host, address, finding_state::kNotPublic);
            continue;
        }
        if (!patient.probe) patient.probe = std::make_unique<Probe>(publisher_, self_, patient.job.user_name);
        const WebLook look = LookAtAnswer(host, address, patient.probe->token(), patient.probe->content(),
                                          patient.means->settings.web_port);
        patient.Note(host, address, look.state, look.detail);
    }
}

void Examiner::LookAtRecords(Patient& patient) const {
    std::map<std::string, std::vector<std::string>> servers;  // of each zone
    for (const PublishedItem& record : patient.records) {
        if (ending_ || steady_clock::now() > patient.end_by) return;
        if (!servers.contains(record.zone)) {
            const auto found = patient.means->dns.NameServers(record.zone);
            if (!found) patient.Note(record.zone, "", finding_state::kNotLookedUp);
            servers[record.zone] = found.value_or(std::vector<std::string>{});
            Shorten(servers[record.zone], kMostServers);
        }
        for (const std::string& server : servers[record.zone]) LookAtRecord(patient, record, server);
    }
}

void Examiner::LookAtRecord(Patient& patient, const PublishedItem& record, const std::string& server) const {
    auto addresses = patient.means->dns.Addresses(server).value_or(std::vector<std::string>{});
    if (addresses.empty()) return patient.Note(server, "", finding_state::kNoAddress);
    Shorten(addresses, kMostAddresses);
    for (const std::string& address : addresses) {
        if (ending_ || steady_clock::now() > patient.end_by) return;
        // Where its host points is up to whoever has that name, as with a web server's.
        if (patient.means->settings.public_only && !IsPublicAddress(address)) {
            patient.Note(server, address, finding_state::kNotPublic);
            continue;
        }
        const std::string place = str::Append(server, "(" + address + ")", " ");
        std::string reason;
        const auto values = patient.means->dns.TxtAt(address, record.name, reason);
        if (!values) {
            patient.Note(record.name, place, finding_state::kUnreached, reason);
            continue;
        }
        const bool there =
            std::find(values->begin(), values->end(), dns::Quoted(record.value)) != values->end();
        patient.Note(record.name, place, there ? finding_state::kThere : finding_state::kMissing);
    }
}

/// A job may have been removed meanwhile, or have got its certificate.
void Examiner::Keep(const Patient& patient) {
    if (ending_ && patient.found.empty()) return;
    try {
        Transaction transaction(store_);
        if (jobs::FindShown(transaction, patient.job.id).verified) return;
        findings::Put(transaction, patient.job.id, patient.found);
        transaction.Commit();
    } catch (const Error& error) {
        if (error.code() != Code::kMissed) throw;
    }
}

}  // namespace zelvek
