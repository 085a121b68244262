#pragma once

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "vek/log.h"
#include "zelvek/base/authority.h"
#include "zelvek/base/plugin_run.h"
#include "zelvek/certificates/install.h"
#include "zelvek/certificates/reloader.h"
#include "zelvek/certificates/site_watch.h"
#include "zelvek/jobs/limits.h"
#include "zelvek/metrics/metrics.h"
#include "zelvek/notices/notifier.h"
#include "zelvek/page/settings.h"
#include "zelvek/panel/right.h"
#include "zelvek/publishing/dns_backends.h"
#include "zelvek/service/sweep.h"

namespace zelvek {

struct ServeOptions {
    std::string database = "/var/lib/zelvek/zelvek.db";  // a Place
    std::filesystem::path answers = "/var/lib/zelvek/answers";
    install::Settings install{"/var/lib/zelvek/certs"};
    std::vector<std::string> certs_owners;  // names of users
    Reloader::Settings reload;
    std::string check_sites = "off";  // address and port, "name", or "off"
    SiteWatch::Settings site_watch;
    std::string responder;       // address and port; empty: answer files are served by another web server
    std::string metrics_listen;  // address and port of this machine alone; empty: nobody is served metrics
    metrics::Settings metrics;
    page::Settings page;
    std::filesystem::path plugin = PluginBesideProgram();
    std::filesystem::path authorities = authorities::DescriptionsOfProgram();
    bool scheduler = true;
    std::chrono::milliseconds scheduler_interval{60'000};
    int runs_at_once = 2 * static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
    Limits limits;
    std::chrono::seconds retry_interval{60};
    std::chrono::milliseconds sweep_interval{5000};
    std::chrono::seconds run_limit{3600};
    int plugin_log_level = vek_log::kFunction;
    bool renewal_info = true;
    Retention retention;
    notices::Notifier::Settings notify;
    GroupNames groups;                                                           // whose members may ask
    std::vector<std::string> public_resolvers{"1.1.1.1", "8.8.8.8", "9.9.9.9"};  // or "off" alone
    dns::Settings dns;  // without a back end, records cannot be published

    std::map<std::string, std::string> places = {};  // of options that stand in a file: "FILE:LINE: "
};

/// Options that were read again while the service runs.
struct NewOptions {
    ServeOptions options;                    // what takes effect at a start is as the service has it
    std::vector<std::string> changed;        // names of options that have other values than before
    std::vector<std::string> at_next_start;  // of those that take effect then
    std::function<void()> taken_over;        // to be called when the service goes by them
};

/// Errors: Error for options that cannot be used.
using ReadAgain = std::function<NewOptions()>;

/// The service: serves until SIGTERM or SIGINT, and goes by other options after SIGHUP; where they cannot be
/// used, it goes on by those that it has. Errors: Error for a set-up that cannot be used.
void Serve(const ServeOptions& options, const ReadAgain& read_again);

/// What `Serve` would say of the options before it takes anything over, such as a key file that cannot be
/// read. Errors: the same, with file and line where the option stands in a file.
void CheckOptions(const ServeOptions& options);

/// Where and for whom certificates are installed. Errors: Error of code kValue for a user that is not known.
install::Settings InstallSettings(const ServeOptions& options);

}  // namespace zelvek
