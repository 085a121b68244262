#include "vek/date.h"

#include <gtest/gtest.h>

#include <ctime>
#include <limits>

#include "vek/err.h"

namespace {

using vek_date::DateTime;

constexpr int kMost = std::numeric_limits<int>::max();
constexpr int kLeast = std::numeric_limits<int>::min();

std::string AfterDays(const std::string& text, int days) { return DateTime(text).AddDays(days).AsDateTime(); }
std::string AfterSeconds(const std::string& text, int seconds) {
    return DateTime(text).AddSeconds(seconds).AsDateTime();
}

// Behaviours of: Texts, dates, names, XML

// Behaviour: A date and time is written as "YYYY-MM-DD HH:MM:SS" in UTC and read in the same form
TEST(DateTime, WritesTheFormThatItReads) {
    for (const char* text :
         {"2024-02-29 23:59:59", "1970-01-01 00:00:00", "1969-12-31 23:59:59", "0001-01-01 00:00:00",
          "9999-12-31 23:59:59", "2000-02-29 12:00:00", "1600-03-01 00:00:01"}) {
        EXPECT_EQ(DateTime(text).AsDateTime(), text);
    }
}

// Behaviour: Anything else, an empty text and days that ...
TEST(DateTime, ReadsThroughWhiteSpaceAround) {
    EXPECT_EQ(DateTime(" \t2024-01-02 03:04:05\r\n").AsDateTime(), "2024-01-02 03:04:05");
}

// Behaviour: Anything else, an empty text and days that no calendar has are errors that say what was refused
TEST(DateTime, RefusesWhatIsNoDate) {
    for (const char* text :
         {"", " ", "0", "2024-01-02", "2024-01-02 03:04", "2024-01-02T03:04:05", "2024-1-02 03:04:05",
          "2024-01-02 03:04:05Z", "2024-01-02  3:04:05", "02024-01-02 03:04:05", "2024-01-02 03:04:5x",
          "2024-01-02 03:04:5:", "2024-01-02 03:04:5/", "+024-01-02 03:04:05", "2024/01/02 03:04:05",
          "-001-01-02 03:04:05", "2024-01-02 03:04:05 2024-01-02 03:04:05"}) {
        EXPECT_THROW(DateTime{text}, vek_err::Error) << text;
    }
}

// Behaviour: Anything else, an empty text and days that ...
TEST(DateTime, RefusesDaysThatNoCalendarHas) {
    for (const char* text :
         {"2023-02-29 00:00:00", "1900-02-29 00:00:00", "2024-02-30 00:00:00", "2024-04-31 00:00:00",
          "2024-06-31 00:00:00", "2024-09-31 00:00:00", "2024-11-31 00:00:00", "2024-00-10 00:00:00",
          "2024-13-10 00:00:00", "2024-01-00 00:00:00", "2024-01-32 00:00:00", "0000-01-01 00:00:00",
          "2024-01-01 24:00:00", "2024-01-01 00:60:00", "2024-01-01 00:00:60"}) {
        EXPECT_THROW(DateTime{text}, vek_err::Error) << text;
    }
}

// Behaviour: Anything else, an empty text and days that ...
TEST(DateTime, SaysWhatItRefused) {
    try {
        DateTime("2023-02-29 00:00:00");
        FAIL();
    } catch (const vek_err::Error& e) {
        EXPECT_EQ(e.type(), "value");
        EXPECT_STREQ(e.what(), "date: value: 2023-02-29 00:00:00");
    }
}

// Behaviour: Dates move by days and seconds in both directions ...
TEST(DateTime, IsALeapYearsDay) {
    EXPECT_EQ(AfterDays("2024-02-28 10:00:00", 1), "2024-02-29 10:00:00");
    EXPECT_EQ(AfterDays("2023-02-28 10:00:00", 1), "2023-03-01 10:00:00");
    EXPECT_EQ(AfterDays("2000-02-28 10:00:00", 1), "2000-02-29 10:00:00");
    EXPECT_EQ(AfterDays("2100-02-28 10:00:00", 1), "2100-03-01 10:00:00");
}

// Behaviour: Dates move by days and seconds in both directions ...
TEST(DateTime, MovesBackwardsToo) {
    EXPECT_EQ(AfterDays("2024-03-01 00:00:00", -1), "2024-02-29 00:00:00");
    EXPECT_EQ(AfterSeconds("1970-01-01 00:00:00", -1), "1969-12-31 23:59:59");
    EXPECT_EQ(AfterDays("1970-01-01 00:00:00", -719162), "0001-01-01 00:00:00");
}

// Behaviour: Dates move by days and seconds in both directions and stop at the ends of the years 1 to 9999
TEST(DateTime, MovesAcrossYears) {
    EXPECT_EQ(AfterSeconds("2023-12-31 23:59:59", 1), "2024-01-01 00:00:00");
    EXPECT_EQ(AfterSeconds("2024-05-06 07:08:09", 1800), "2024-05-06 07:38:09");
    EXPECT_EQ(AfterDays("2024-01-01 00:00:00", 365), "2024-12-31 00:00:00");
    EXPECT_EQ(AfterDays("2023-01-01 00:00:00", 365), "2024-01-01 00:00:00");
}

// Behaviour: Dates move by days and seconds in both directions ...
TEST(DateTime, MovesByEverySecondCount) {
    EXPECT_EQ(AfterSeconds("1970-01-01 00:00:00", kMost), "2038-01-19 03:14:07");
    EXPECT_EQ(AfterSeconds("1970-01-01 00:00:00", kLeast), "1901-12-13 20:45:52");
}

// Behaviour: Dates move by days and seconds in both directions ...
TEST(DateTime, StopsAtTheEndsOfItsYears) {
    EXPECT_EQ(AfterDays("2024-01-01 00:00:00", kMost), "9999-12-31 23:59:59");
    EXPECT_EQ(AfterDays("2024-01-01 00:00:00", kLeast), "0001-01-01 00:00:00");
    EXPECT_EQ(AfterSeconds("9999-12-31 23:59:58", 2), "9999-12-31 23:59:59");
    EXPECT_EQ(AfterSeconds("0001-01-01 00:00:01", -2), "0001-01-01 00:00:00");
}

// Behaviour: A date and time is written as "YYYY-MM-DD ...
TEST(DateTime, AgreesWithTheSystemsCalendar) {
    // Every 11 days from 1902 to 2106; 86400 and the step share no factor with a year.
    for (std::time_t at = -2'145'916'800; at < 4'291'747'200; at += 11L * 86'400 + 4'321) {
        std::tm civil{};
        gmtime_r(&at, &civil);
        char text[32];
        std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &civil);
        const auto days = static_cast<int>(at / 86'400);
        const auto seconds = static_cast<int>(at % 86'400);
        ASSERT_EQ(DateTime("1970-01-01 00:00:00").AddDays(days).AddSeconds(seconds).AsDateTime(), text);
        ASSERT_EQ(DateTime(text).AsDateTime(), text);
    }
}

// Behaviour: Moments are compared as moments
TEST(DateTime, ComparesMoments) {
    const DateTime early("2024-01-01 00:00:00");
    const DateTime late("2024-01-01 00:00:01");
    EXPECT_LT(early, late);
    EXPECT_GE(late, early);
    EXPECT_EQ(DateTime(early).AddSeconds(1), late);
}

}  // namespace
