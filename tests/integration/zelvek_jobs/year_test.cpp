// A year of a panel with many jobs, on the real store with the real decisions; only the clock, the runs and
// the authority are played. `scripts/year` prints the table for a thousand jobs each, which docs/year.md
// keeps; with certificates of six days that takes minutes, so otherwise there are fewer of them.
#include "year.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iostream>

namespace zelvek::testing {

namespace {

void Row(const std::string& what, const std::string& value) {
    std::printf("%-58s %s\n", what.c_str(), value.c_str());
}

void Print(const Year& year) {
    const Rules& rules = year.authority().rules();
    const auto told = year.ToldOfBroken();
    Row("Authority", rules.name);
    std::string outages;
    for (const Outage& outage : rules.outages)
        outages += "day " + std::to_string(outage.day) + ": " + std::to_string(outage.hours) + " h  ";
    Row("Outages", outages);
    Row("Jobs, of them broken for good",
        std::to_string(rules.jobs) + ", " + std::to_string(rules.jobs / kOneOf));
    Row("Runs", std::to_string(year.runs_made));
    Row("Registrations", std::to_string(year.authority().registrations));
    Row("Renewals", std::to_string(year.renewals));
    Row("Certificates that ended before their renewal", std::to_string(year.gaps));
    Row("Most orders within three hours (the authority allows 300)",
        std::to_string(year.authority().most_orders));
    Row("Most failed checks of a name within an hour (allowed: 5)",
        std::to_string(year.authority().most_failures));
    char ratio[64];
    std::snprintf(ratio, sizeof ratio, "%.2f, %.2f", year.BusiestHour(), year.BusiestDay());
    Row("Planned renewals: busiest hour and day, against the mean", ratio);
    Row("A broken name was told (once, then weekly: 53)",
        std::to_string(told.first) + " to " + std::to_string(told.second));
    Row("Told of names that work", std::to_string(year.told_of_working));
    Row("Most questions for one certificate's renewal in a day", std::to_string(year.asked_most));
    std::cout << std::endl;
}

void Hold(const Year& year) {
    EXPECT_EQ(year.gaps, 0) << "the longest " << year.longest_gap << " s";
    EXPECT_LE(year.authority().most_orders, 300);
    EXPECT_LE(year.authority().most_failures, 5);
    EXPECT_EQ(year.authority().registrations, 1);
    EXPECT_GE(year.ToldOfBroken().first, 45);
    EXPECT_LE(year.ToldOfBroken().second, 60);
    EXPECT_LE(year.asked_most, 2);
}

/// Of a few an hour, or a day, chance alone brings together more.
void HoldSpread(const Year& year) {
    const Rules& rules = year.authority().rules();
    const double renewals_a_day = 1.5 * rules.jobs / rules.lifetime;
    if (renewals_a_day >= 200) {
        EXPECT_LT(year.BusiestHour(), 3);
    }
    if (renewals_a_day >= 15) {
        EXPECT_LT(year.BusiestDay(), 3);
    }
}

// Behaviours of: Scheduling

// Behaviour: In a year of many jobs, with outages of the authority, no name that can be proved is
// without a
//   certificate, no limit of the authority is exceeded, renewals are spread, and broken names are told once
//   and then weekly
TEST(Year, WithCertificatesOfSixDays) {
    Year year({"6 days", 6, {{100, 24}, {250, 24}}, false, JobsOr(100)});
    year.Pass();
    Print(year);
    Hold(year);
    HoldSpread(year);
}

// Behaviour: In a year of many jobs, with outages ...
TEST(Year, WithCertificatesOfNinetyDays) {
    Year year({"90 days", 90, {{100, 24}, {200, 7 * 24}}, true, JobsOr(1000)});
    year.Pass();
    Print(year);
    Hold(year);
    HoldSpread(year);
}

}  // namespace

}  // namespace zelvek::testing
