// The calendar's arithmetic; the clock itself is elsewhere.
#include "vek/date.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>

#include "vek/err.h"
#include "vek/str.h"

namespace vek_date {
namespace {

constexpr std::int64_t kDay = 86400;
constexpr int kYears = 400;           // after which the calendar repeats
constexpr int kDaysOfYears = 146097;  // in that time
constexpr int kEpoch = 719468;        // days from 0000-03-01 to 1970-01-01

struct Civil {
    int year;
    int month;
    int day;
};

// Years begin with March here, so that a leap day is the last day of its year.
std::int64_t DaysFromCivil(const Civil& date) {
    const std::int64_t year = date.month <= 2 ? date.year - 1 : date.year;
    const std::int64_t period = year / kYears;
    const std::int64_t year_of_period = year % kYears;
    const std::int64_t month = (date.month + 9) % 12;
    const std::int64_t day_of_year = (153 * month + 2) / 5 + date.day - 1;
    const std::int64_t day = year_of_period * 365 + year_of_period / 4 - year_of_period / 100 + day_of_year;
    return period * kDaysOfYears + day - kEpoch;
}

Civil CivilFromDays(std::int64_t days) {
    days += kEpoch;
    const std::int64_t period = days / kDaysOfYears;
    const std::int64_t day = days % kDaysOfYears;
    const std::int64_t year = (day - day / 1460 + day / 36524 - day / 146096) / 365;
    const std::int64_t day_of_year = day - (365 * year + year / 4 - year / 100);
    const std::int64_t month = (5 * day_of_year + 2) / 153;
    const auto civil_month = static_cast<int>(month < 10 ? month + 3 : month - 9);
    return {static_cast<int>(year + period * kYears + (civil_month <= 2 ? 1 : 0)), civil_month,
            static_cast<int>(day_of_year - (153 * month + 2) / 5 + 1)};
}

bool IsLeap(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysOfMonth(int year, int month) {
    if (month == 2) return IsLeap(year) ? 29 : 28;
    return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

std::int64_t Clamp(std::int64_t seconds) {
    const std::int64_t first = DaysFromCivil({1, 1, 1}) * kDay;
    const std::int64_t last = DaysFromCivil({9999, 12, 31}) * kDay + kDay - 1;
    return std::clamp(seconds, first, last);
}

bool HasForm(const std::string& text) {
    constexpr char kForm[] = "dddd-dd-dd dd:dd:dd";
    if (text.size() != sizeof(kForm) - 1) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool is_digit = text[i] >= '0' && text[i] <= '9';
        if (kForm[i] == 'd' ? !is_digit : text[i] != kForm[i]) return false;
    }
    return true;
}

}  // namespace

DateTime::DateTime(const std::string& text) : seconds_(0) {
    const std::string form = str::Trim(text);
    if (!HasForm(form)) throw vek_err::Error("date", "value", text);
    const auto number = [&form](std::size_t at) { return str::Int(form.substr(at)); };
    const Civil date{number(0), number(5), number(8)};
    const int hour = number(11);
    const int minute = number(14);
    const int second = number(17);
    const bool is_date = date.year >= 1 && date.month >= 1 && date.month <= 12 && date.day >= 1 &&
                         date.day <= DaysOfMonth(date.year, date.month);
    if (!is_date || hour > 23 || minute > 59 || second > 59) throw vek_err::Error("date", "value", text);
    const int second_of_day = (hour * 60 + minute) * 60 + second;
    seconds_ = DaysFromCivil(date) * kDay + second_of_day;
}

DateTime& DateTime::AddDays(int days) {
    seconds_ = Clamp(seconds_ + days * kDay);
    return *this;
}

DateTime& DateTime::AddSeconds(int seconds) {
    seconds_ = Clamp(seconds_ + seconds);
    return *this;
}

std::string DateTime::AsDateTime() const {
    const std::int64_t in_day = (seconds_ % kDay + kDay) % kDay;
    const Civil date = CivilFromDays((seconds_ - in_day) / kDay);
    const auto second = static_cast<int>(in_day);
    char text[64];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d", date.year, date.month, date.day,
                  second / 3600, second / 60 % 60, second % 60);
    return text;
}

}  // namespace vek_date
