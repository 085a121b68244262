#pragma once

#include <string>

#include "vek/client.h"

/// When things happen to jobs, in few words.
namespace zelvek::records {

/// What happens to the job next, and when: "renews 2031-02-03", "next try 12:30 UTC (2 failures)". `now` is a
/// date-time, and the day that is not named.
std::string NextStep(const vek_xml::Node& job, const std::string& now);

/// A date-time of the service's with its zone, "2031-02-03 11:20:14 UTC"; an empty text stays empty.
std::string WithZone(const std::string& time);

/// The day of a date-time; any other text as it is.
std::string DayOf(const std::string& time);

}  // namespace zelvek::records
