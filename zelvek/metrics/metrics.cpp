#include "zelvek/metrics/metrics.h"

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <algorithm>
#include <array>
#include <exception>
#include <limits>
#include <map>
#include <utility>
#include <vector>

#include "vek/date.h"
#include "zelvek/base/version.h"
#include "zelvek/jobs/limits.h"
#include "zelvek/jobs/run_end.h"
#include "zelvek/store/job_authorities.h"
#include "zelvek/store/job_lists.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/restarts.h"
#include "zelvek/store/tallies.h"

namespace zelvek::metrics {

namespace {

using job_lists::Kind;
using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using Labels = std::vector<ClientMetric::Label>;
using vek_date::DateTime;

constexpr const char* kForEver = "9999-12-31 23:59:59";
// Days on which certificates end: more than any certificate lives for, and no more than can be read at once.
constexpr int kMostDays = 2000;
constexpr std::array kDaysLeft{0, 1, 3, 7, 14, 30, 60, 90};
constexpr std::size_t kDateLength = 10;
constexpr double kMilliseconds = 1000;

void AddGauge(MetricFamily& family, double value, Labels labels = {}) {
    ClientMetric metric;
    metric.label = std::move(labels);
    metric.gauge.value = value;
    family.metric.push_back(std::move(metric));
}

MetricFamily Gauge(const std::string& name, const std::string& help) {
    return {name, help, MetricType::Gauge, {}};
}

MetricFamily OneGauge(const std::string& name, const std::string& help, double value) {
    MetricFamily family = Gauge(name, help);
    AddGauge(family, value);
    return family;
}

/// 0 where one of them is no time.
double SecondsBetween(const std::string& earlier, const std::string& later) try {
    return static_cast<double>(DateTime(later).SecondsSince(DateTime(earlier)));
} catch (const std::exception&) {
    return 0;
}

MetricFamily BuildInfo() {
    MetricFamily family = Gauge("zelvek_build_info", "Always 1; the label is the service's version");
    AddGauge(family, 1, {{"version", Version()}});
    return family;
}

MetricFamily JobsByState(Transaction& transaction) {
    MetricFamily family = Gauge("zelvek_jobs", "Jobs by state, each in one of them");
    for (const Kind kind : job_lists::kByAttention)
        AddGauge(family, static_cast<double>(job_lists::Count(transaction, kind)),
                 {{"state", job_lists::Word(kind)}});
    return family;
}

MetricFamily EndedRuns(Transaction& transaction) {
    MetricFamily family{"zelvek_runs_total",
                        "Runs that have ended, by what became of the job and by what kind of failure it was",
                        MetricType::Counter,
                        {}};
    for (const tallies::Runs& runs : tallies::OfRuns(transaction)) {
        ClientMetric metric;
        metric.label = {{"outcome", runs.outcome}, {"class", runs.reason}};
        metric.counter.value = static_cast<double>(runs.number);
        family.metric.push_back(std::move(metric));
    }
    return family;
}

MetricFamily RunDurations(Transaction& transaction) {
    std::map<long long, long long> runs;
    ClientMetric::Histogram histogram;
    for (const tallies::Durations& some : tallies::OfDurations(transaction)) {
        runs[some.bound] = some.runs;
        histogram.sample_sum += static_cast<double>(some.milliseconds) / kMilliseconds;
    }
    for (const int bound : run_end::kBounds) {
        histogram.sample_count += static_cast<std::uint64_t>(runs[bound]);
        const double upper = bound == 0 ? std::numeric_limits<double>::infinity() : bound;
        histogram.bucket.push_back({histogram.sample_count, upper});
    }
    ClientMetric metric;
    metric.histogram = std::move(histogram);
    return {"zelvek_run_duration_seconds",
            "How long runs took that have written their job back",
            MetricType::Histogram,
            {std::move(metric)}};
}

MetricFamily SoonestEnds(Transaction& transaction, int most, const std::string& now) {
    MetricFamily family = Gauge("zelvek_certificate_expires_in_seconds",
                                "Time until an installed certificate ends, of those that end next");
    for (const Job& job : job_lists::Some(transaction, {Kind::kEnding, "", {}, most, kForEver})) {
        AddGauge(family, SecondsBetween(now, job.expires),
                 {{"id", std::to_string(job.id)}, {"certificate", job.certname}, {"user", job.user_name}});
    }
    return family;
}

MetricFamily EndsByDaysLeft(Transaction& transaction, const std::string& now) {
    const std::vector<tallies::Ends> days = tallies::OfEnds(transaction, "", kMostDays);
    const auto before = [&](const std::string& end) {
        double jobs = 0;
        for (const tallies::Ends& ends : days) jobs += ends.day < end ? static_cast<double>(ends.jobs) : 0;
        return jobs;
    };
    MetricFamily family =
        Gauge("zelvek_certificates", "Installed certificates that end within so many days; 0: have ended");
    for (const int left : kDaysLeft) {
        const std::string day = DateTime(now).AddDays(left).AsDateTime().substr(0, kDateLength);
        AddGauge(family, before(day), {{"within_days", std::to_string(left)}});
    }
    AddGauge(family, before(kForEver), {{"within_days", "+Inf"}});
    return family;
}

/// Since when what is due the longest waits for its run, or for its renewal; `now` where nothing does.
std::string DueSince(Transaction& transaction, const std::string& now) {
    std::string since = now;
    for (const Job& job : job_lists::Some(transaction, {Kind::kDue, "", {}, 1, now}))
        since = std::min(since, job.due);
    for (const int id : restarts::RenewalDue(transaction, now, 1))
        since = std::min(since, jobs::FindShown(transaction, id).renew);
    return since;
}

MetricFamily Notices(Transaction& transaction) {
    MetricFamily family = Gauge("zelvek_notices", "Notifications that are kept, by state");
    for (const auto& [state, notices] : tallies::OfNotices(transaction))
        AddGauge(family, static_cast<double>(notices), {{"state", state}});
    return family;
}

MetricFamily Orders(Transaction& transaction, int limit, const std::string& now) {
    MetricFamily family = Gauge("zelvek_authority_orders",
                                "Orders of an authority's default account within the last three hours");
    for (const auto& [authority, jobs] : job_authorities::Counts(transaction))
        AddGauge(family, OrdersOf(transaction, authority, now, limit), {{"authority", authority}});
    return family;
}

}  // namespace

std::string Text(Transaction& transaction, const Settings& settings, const std::string& now) {
    std::vector<MetricFamily> all{
        BuildInfo(),
        JobsByState(transaction),
        EndedRuns(transaction),
        RunDurations(transaction),
        SoonestEnds(transaction, settings.certificates, now),
        EndsByDaysLeft(transaction, now),
        OneGauge("zelvek_queue_age_seconds", "For how long a job is due already that waits for its run",
                 SecondsBetween(DueSince(transaction, now), now)),
        Notices(transaction),
        Orders(transaction, settings.orders_limit, now),
        OneGauge("zelvek_authority_orders_limit", "Orders that the service places at most within three hours",
                 settings.orders_limit)};
    return prometheus::TextSerializer().Serialize(all);
}

}  // namespace zelvek::metrics
