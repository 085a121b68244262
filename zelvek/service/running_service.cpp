#include "zelvek/service/running_service.h"

#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "vek/date.h"
#include "zelvek/base/durable.h"
#include "zelvek/base/error.h"
#include "zelvek/base/log.h"
#include "zelvek/service/sweep.h"
#include "zelvek/service/use_directory.h"
#include "zelvek/store/place.h"

namespace zelvek {

namespace {

/// What killed services have left in files; it keeps nobody from starting.
void TidyCertificates(const install::Settings& installed) {
    try {
        install::RemoveLeftovers(installed);
    } catch (const Error& error) {
        Log(std::string("removing what killed services left: ") + error.what());
    }
}

/// What the service works with outside its database is there, and can be used. Returns the answers' place.
const std::filesystem::path& CheckPlaces(const ServeOptions& options) {
    UseDirectory("the answers' directory", options.answers);
    durable::RemoveLeftovers(options.answers);
    UseDirectory("the certificates' directory", options.install.directory);
    CheckPlugin(options);
    return options.answers;
}

Scheduler::Settings SchedulerSettings(const ServeOptions& options) {
    return {options.plugin,
            options.scheduler_interval,
            options.scheduler ? static_cast<std::size_t>(options.runs_at_once) : 0,
            {{options.retry_interval}, options.limits},
            options.run_limit,
            Scheduler::Settings{}.kill_after,
            options.plugin_log_level};
}

metrics::Settings MetricsSettings(const ServeOptions& options) {
    return {options.metrics.certificates, options.limits.orders};
}

Rules RulesOf(const ServeOptions& options) {
    return {{options.retry_interval}, options.retention.history_entries, options.scheduler};
}

std::optional<Responder> WantedResponder(const ServeOptions& options) {
    if (options.responder.empty()) return std::nullopt;
    return std::optional<Responder>(std::in_place, options.responder, options.answers);
}

std::optional<metrics::Endpoint> WantedEndpoint(Store& store, const ServeOptions& options) {
    if (options.metrics_listen.empty()) return std::nullopt;
    return std::optional<metrics::Endpoint>(std::in_place, store, options.metrics_listen,
                                            MetricsSettings(options));
}

std::optional<page::Page> WantedPage(Services& services, const ServeOptions& options) {
    if (options.page.listen.empty()) return std::nullopt;
    return std::optional<page::Page>(std::in_place, services, options.page,
                                     page::Allowed{options.limits.orders, options.limits.failures});
}

std::string PageAddress(const ServeOptions& options) {
    return options.page.listen.empty() ? "" : page::AddressOf(options.page).url;
}

}  // namespace

void CheckPlugin(const ServeOptions& options) {
    if (options.scheduler && ::access(options.plugin.c_str(), X_OK) != 0) {
        throw IoError("plug-in", options.plugin, errno);
    }
}

RunningService::RunningService(const ServeOptions& options, Store& store, ServiceSocket& socket)
    : store_(store),
      publisher_(store_, CheckPlaces(options), dns::MakeBackend(options.dns)),
      reloader_(store_, options.reload),
      notifier_(store_, options.notify),
      looks_(store_, publisher_, options),
      services_{store_,
                publisher_,
                InstallSettings(options),
                reloader_,
                RulesOf(options),
                {vek_date::DateTime().AsDateTime(), Place(options.database).Shown(), PageAddress(options)},
                &looks_.sites(),
                {options.plugin, options.authorities},
                options.groups},
      retention_(options.retention),
      sweep_interval_(options.sweep_interval),
      tidying_([this] { TidyCertificates(services_.install); }),
      responder_(WantedResponder(options)),
      watched_(WantedEndpoint(store_, options)),
      page_(WantedPage(services_, options)),
      server_(services_, socket),
      sweeper_("sweep", sweep_interval_, [this] { Sweep(services_, *retention_.Get()); }),
      reloading_("reload", sweep_interval_, [this] { reloader_.RetryDue(); }) {
    notifier_.Start(sweep_interval_);
    StartOrEndParts(options);
}

RunningService::~RunningService() {
    reloader_.End();
    if (asking_) asking_->End();
}

void RunningService::StartOrEndParts(const ServeOptions& options) {
    if (options.renewal_info != asking_.has_value()) {
        if (asking_) asking_->End();
        options.renewal_info ? static_cast<void>(asking_.emplace(services_, sweep_interval_))
                             : asking_.reset();
    }
    if (scheduler_) {
        scheduler_->Change(SchedulerSettings(options));
    } else if (options.scheduler) {
        scheduler_.emplace(store_, SchedulerSettings(options));
    }
}

void RunningService::Use(const ServeOptions& options) {
    // All that may find something wrong comes first.
    std::shared_ptr<dns::Backend> records = dns::MakeBackend(options.dns);
    auto means = notices::Notifier::MeansOf(options.notify);
    looks_.Change(options);

    publisher_.UseRecords(std::move(records));
    notifier_.Change(std::move(means));
    reloader_.Change(options.reload);
    services_.rules.Set(RulesOf(options));
    retention_.Set(options.retention);
    if (watched_) watched_->Change(MetricsSettings(options));
    StartOrEndParts(options);
}

}  // namespace zelvek
