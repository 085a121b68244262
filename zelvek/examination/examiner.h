#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "zelvek/base/job.h"
#include "zelvek/base/process.h"
#include "zelvek/base/snapshot.h"
#include "zelvek/examination/public_dns.h"
#include "zelvek/publishing/publisher.h"
#include "zelvek/store/findings.h"
#include "zelvek/store/publications.h"
#include "zelvek/store/store.h"

namespace zelvek {

/// Looks where an authority looks when it has found names of a job not proved, so that a person can be told
/// what is wrong there. An authority's words say it seldom, and some say nothing.
class Examiner {
public:
    struct Settings {
        std::vector<std::string> resolvers;  // addresses of public name servers; none: nobody looks
        int dns_port = 53;
        int web_port = 80;
        bool public_only = true;         // no other addresses are connected to; tests have no public ones
        std::chrono::seconds limit{60};  // for one job
    };

    /// `self` publishes the answers that are looked for. Errors: Error of code kValue for settings that
    /// cannot be used.
    Examiner(Store& store, Publisher& publisher, Settings settings, Process self);

    /// Other settings from the next jobs on. Safe from any thread. Errors: Error of code kValue for settings
    /// that cannot be used; nothing has changed then.
    void Change(Settings settings);

    /// Examines a few of the jobs that wait for it, at once, and keeps what was found.
    void ExamineSome();

    /// `ExamineSome` comes to an end soon, on whatever thread it is.
    void End() { ending_ = true; }

private:
    class Probe;
    struct Patient;

    /// By what one job is examined.
    struct Means {
        Settings settings = {};
        PublicDns dns{{}};
    };

    static Means MeansOf(Settings settings);

    std::vector<Patient> Take(const std::shared_ptr<const Means>& means);
    void Examine(Patient& patient) const;
    void LookAtWeb(Patient& patient) const;
    void LookAtHost(Patient& patient, const std::string& host) const;
    void LookAtRecords(Patient& patient) const;
    void LookAtRecord(Patient& patient, const publications::PublishedItem& record,
                      const std::string& server) const;
    void Keep(const Patient& patient);

    Store& store_;
    Publisher& publisher_;
    Snapshot<Means> means_;
    Process self_;
    std::atomic<bool> ending_{false};
};

}  // namespace zelvek
