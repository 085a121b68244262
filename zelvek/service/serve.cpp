#include "zelvek/service/serve.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <iostream>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "vek/client.h"
#include "vek/date.h"
#include "vek/err.h"
#include "vek/proc.h"
#include "zelvek/base/durable.h"
#include "zelvek/base/error.h"
#include "zelvek/base/folder.h"
#include "zelvek/base/happening.h"
#include "zelvek/base/log.h"
#include "zelvek/base/periodic.h"
#include "zelvek/base/run_directory.h"
#include "zelvek/base/text.h"
#include "zelvek/base/version.h"
#include "zelvek/jobs/scheduler.h"
#include "zelvek/metrics/endpoint.h"
#include "zelvek/panel/functions.h"
#include "zelvek/publishing/publisher.h"
#include "zelvek/publishing/responder.h"
#include "zelvek/service/caller.h"
#include "zelvek/service/looks.h"
#include "zelvek/service/query_server.h"
#include "zelvek/service/renewal_watch.h"
#include "zelvek/service/service_manager.h"
#include "zelvek/service/socket.h"
#include "zelvek/service/sweep.h"
#include "zelvek/store/store.h"

namespace zelvek {

namespace fs = std::filesystem;

namespace {

/// The signals that end the service, taken by its main thread alone. Threads made later block them too.
class EndSignals {
public:
    EndSignals() {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGTERM);
        sigaddset(&signals_, SIGINT);
        pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGCHLD, SIG_DFL);  // plug-ins could not be waited for otherwise
    }

    int Wait() const {
        int signal = 0;
        sigwait(&signals_, &signal);
        return signal;
    }

private:
    sigset_t signals_{};
};

/// Makes the directory where it is missing. Everybody may read it, web servers among them.
void UseDirectory(const std::string& purpose, const fs::path& directory) try {
    MakeFolders(directory, 0755);
    if (::access(directory.c_str(), W_OK | X_OK) != 0) throw IoError("cannot write to", directory, errno);
} catch (const Error& error) {
    throw Error(error.code(), purpose + ": " + error.what());
}

uid_t IdOf(const std::string& user) {
    const passwd* entry = ::getpwnam(user.c_str());  // before any other thread is there
    if (entry == nullptr)
        throw Error(Code::kValue, "--certs-owner: there is no user \"" + Printable(user) + "\"");
    return entry->pw_uid;
}

/// What killed services have left in files; it keeps nobody from starting.
void TidyCertificates(const install::Settings& installed) {
    try {
        install::RemoveLeftovers(installed);
    } catch (const Error& error) {
        Log(std::string("removing what killed services left: ") + error.what());
    }
}

fs::path WithParent(const fs::path& file) {
    if (file.has_parent_path()) UseDirectory("the database's directory", file.parent_path());
    return file;
}

void CheckPlugin(const ServeOptions& options) {
    if (options.scheduler && ::access(options.plugin.c_str(), X_OK) != 0) {
        throw IoError("plug-in", options.plugin, errno);
    }
}

/// What the service works with outside its database is there, and can be used.
void CheckPlaces(const ServeOptions& options) {
    UseDirectory("the answers' directory", options.answers);
    durable::RemoveLeftovers(options.answers);
    UseDirectory("the certificates' directory", options.install.directory);
    CheckPlugin(options);
}

Scheduler::Settings SchedulerSettings(const ServeOptions& options) {
    return {options.plugin,
            options.scheduler_interval,
            static_cast<std::size_t>(options.runs_at_once),
            {{options.retry_interval}, options.limits},
            options.run_limit,
            Scheduler::Settings{}.kill_after,
            options.plugin_log_level};
}

metrics::Settings MetricsSettings(const ServeOptions& options) {
    return {options.metrics.certificates, options.limits.orders};
}

/// Whether a query comes back from the service's own socket. One that comes back with an error has been
/// answered: a new start would not change that error.
bool AnswersItself() try {
    vek_client::Local("zelvek", "watchdog").Query("func=zelvek.account.show");
    return true;
} catch (const vek_err::Error& error) {
    if (error.type() != "connect" && error.type() != "protocol") return true;
    Log(std::string("watchdog: ") + error.what());
    return false;
}

/// Tells the service manager that all is well as long as it is; nothing where nobody wants to hear of it.
std::unique_ptr<Periodic> WatchOneself(const ServiceManager& manager) {
    if (!manager.watchdog()) return nullptr;
    constexpr int kTimesInInterval = 3;  // one that is late is not taken for none then
    return std::make_unique<Periodic>("watchdog", *manager.watchdog() / kTimesInInterval, [&manager] {
        if (AnswersItself()) manager.TellAlive();
    });
}

/// Says that the service is there, and returns when it is asked to end.
void UntilEnd(const EndSignals& signals, const ServiceManager& manager) {
    const auto watched = WatchOneself(manager);
    manager.TellReady();
    std::cout << "zelvek: ready" << std::endl;
    LogToJournal(Happening::kBegan, {}, std::string("zelvek ") + Version() + " is ready");
    const int signal = signals.Wait();
    manager.TellEnding();
    Log(Happening::kEnds, {}, "ending on signal " + std::to_string(signal));
}

}  // namespace

install::Settings InstallSettings(const ServeOptions& options) {
    install::Settings settings = options.install;
    for (const std::string& user : options.certs_owners) settings.owners.push_back(IdOf(user));
    return settings;
}

namespace {

std::optional<Responder> WantedResponder(const ServeOptions& options) {
    if (options.responder.empty()) return std::nullopt;
    return std::optional<Responder>(std::in_place, options.responder, options.answers);
}

std::optional<metrics::Endpoint> WantedEndpoint(Store& store, const ServeOptions& options) {
    if (options.metrics_listen.empty()) return std::nullopt;
    return std::optional<metrics::Endpoint>(std::in_place, store, options.metrics_listen,
                                            MetricsSettings(options));
}

std::optional<Scheduler> WantedScheduler(Store& store, const ServeOptions& options) {
    if (!options.scheduler) return std::nullopt;
    return std::optional<Scheduler>(std::in_place, store, SchedulerSettings(options));
}

}  // namespace

void CheckOptions(const ServeOptions& options) {
    FindGroups(options.groups);
    InstallSettings(options);
    WatchSettings(options);
    CheckPlugin(options);
    if (!options.metrics_listen.empty()) metrics::CheckAddress(options.metrics_listen);
    dns::MakeBackend(options.dns);
    notices::CheckSettings(options.notify);
}

void Serve(const ServeOptions& options) {
    vek_proc::LeaveNoCoreFile();
    const EndSignals signals;
    ServiceManager manager;
    ServiceSocket socket(RunDirectory(), FindGroups(options.groups), manager.TakeSocket());
    Store store(WithParent(options.database));
    CheckPlaces(options);
    const auto backend = dns::MakeBackend(options.dns);

    Publisher publisher(store, options.answers, backend.get());
    Reloader reloader(store, options.reload);
    const install::Settings installed = InstallSettings(options);
    Services services{store,
                      publisher,
                      backend.get(),
                      installed,
                      reloader,
                      {options.retry_interval},
                      options.retention.history_entries,
                      {vek_date::DateTime().AsDateTime(), options.database, options.scheduler}};
    notices::Notifier notifier(store, options.notify);
    Looks looks(store, publisher, options);
    services.sites = looks.sites();
    services.plugins = {options.plugin, options.authorities};
    services.groups = options.groups;
    // It takes a while where there are many certificates, and may go on while queries are answered.
    const std::jthread tidying([&] { TidyCertificates(installed); });
    const auto responder = WantedResponder(options);
    const auto watched = WantedEndpoint(store, options);
    // What is made last ends first: runs end while the server still takes their records.
    const Server server(services, socket);
    const Periodic sweeper("sweep", options.sweep_interval, [&] { Sweep(services, options.retention); });
    notifier.Start(options.sweep_interval);
    std::optional<RenewalWatch> asking;
    if (options.renewal_info) asking.emplace(services, options.sweep_interval);
    const Periodic reloading("reload", options.sweep_interval, [&] { reloader.RetryDue(); });
    const auto scheduler = WantedScheduler(store, options);
    UntilEnd(signals, manager);
    reloader.End();
    if (asking) asking->End();
}

}  // namespace zelvek
