#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zelvek/base/snapshot.h"
#include "zelvek/certificates/site_look.h"
#include "zelvek/store/served.h"
#include "zelvek/store/store.h"

namespace zelvek {

/// Looks whether the web server shows the certificates that are installed: a reload command that succeeds may
/// have reached another server, or one whose configuration names another file.
class SiteWatch {
public:
    struct Settings {
        bool wanted = true;        // otherwise nobody looks
        std::optional<Site> site;  // where to look; nothing for each name's own addresses
        std::chrono::milliseconds first_pause{
            5000};  // after an installation; each further one is twice as long
        std::chrono::seconds longest_pause{3600};
        std::chrono::milliseconds limit{5000};  // for one handshake
    };

    SiteWatch(Store& store, Settings settings);

    /// Other settings from the next look on. Safe from any thread.
    void Change(Settings settings) { settings_.Set(std::move(settings)); }

    /// A certificate has been installed there, and the web server reloaded.
    void Expect(const std::string& user, const std::string& certname, const std::filesystem::path& directory);

    /// Looks for those whose time has come. The administrator has the notification "old_certificate_served"
    /// from the sixth look in vain, some minutes after the installation, until the certificate is shown.
    void LookAtDue();

    /// `LookAtDue` comes to an end soon, on whatever thread it is.
    void End() { ending_ = true; }

private:
    served::Served Look(const served::Check& check, const Settings& settings) const;
    void Keep(const served::Check& check, const served::Served& seen, const Settings& settings);

    Store& store_;
    Snapshot<Settings> settings_;
    std::atomic<bool> ending_{false};
};

/// Nothing is known of a certificate any more, and nobody is told about it.
void ForgetSite(Transaction& transaction, const std::string& user, const std::string& folder);

}  // namespace zelvek
