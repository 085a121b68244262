#pragma once

#include <string>

#include "zelvek/store/store.h"

/// What a Prometheus server reads of the service. docs/watching.md describes each metric.
namespace zelvek::metrics {

struct Settings {
    int certificates = 20;  // the soonest ends of so many are told one by one
    int orders_limit = 250;
};

/// All metrics in Prometheus' text format. It reads counters and the beginnings of indexes, so the work grows
/// with nothing but the settings. `now` is a date-time.
std::string Text(Transaction& transaction, const Settings& settings, const std::string& now);

}  // namespace zelvek::metrics
