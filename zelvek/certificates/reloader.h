#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <utility>

#include "zelvek/base/snapshot.h"
#include "zelvek/certificates/install.h"
#include "zelvek/certificates/reload.h"
#include "zelvek/store/store.h"

namespace zelvek {

/// Has the web server take new certificates over. A reload that fails is no failed issuance: it is tried
/// again with growing pauses, and the administrator has a notification from the first failure until a
/// success.
class Reloader {
public:
    struct Settings {
        std::string command;  // run by /bin/sh; empty for none
        std::chrono::seconds limit{60};
        std::chrono::milliseconds first_pause{10000};  // after a failure; each further one is twice as long
        std::chrono::seconds longest_pause{3600};
    };

    Reloader(Store& store, Settings settings);

    /// Other settings from now on; a reload under way ends by those with which it began. Safe from any
    /// thread.
    void Change(Settings settings) { settings_.Set(std::move(settings)); }

    /// To be called before a certificate is put in place: a service that is killed in between reloads when it
    /// is back.
    void Expect(const std::string& user, const std::string& certname, const std::filesystem::path& directory);

    /// Nothing was put in place after all.
    void Forget(const std::string& user, const std::string& certname);

    /// Runs the command once.
    void Reload(const InstalledCertificate& installed);

    /// Tries again what has failed and whose time has come.
    void RetryDue();

    /// `RetryDue` begins no further reload, on whatever thread it is.
    void End() { ending_ = true; }

private:
    Store& store_;
    Snapshot<Settings> settings_;
    std::atomic<bool> ending_{false};
};

/// Nobody waits any more for the reload with this certificate, whose name is in its ASCII form, and nobody is
/// told about it.
void EndReload(Transaction& transaction, const std::string& user, const std::string& certname);

}  // namespace zelvek
