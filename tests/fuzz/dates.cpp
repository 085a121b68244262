// Dates: accepted texts are those of the calendar, and come back; moving a moment keeps the order of moments.
#include <cstdio>
#include <ctime>

#include "support/plain.h"
#include "support/target.h"
#include "vek/date.h"
#include "vek/err.h"

namespace {

constexpr std::int64_t kFirst = -62135596800;  // 0001-01-01 00:00:00
constexpr std::int64_t kLast = 253402300799;   // 9999-12-31 23:59:59
constexpr std::int64_t kDay = 86400;

std::string Written(std::int64_t seconds) {
    const std::time_t time = std::max(kFirst, std::min(kLast, seconds));
    std::tm tm{};
    gmtime_r(&time, &tm);
    char text[64];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d", tm.tm_year + 1900, tm.tm_mon + 1,
                  tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
    return text;
}

/// The C library's reading: true for a moment that is written in just this way.
bool Read(const std::string& text, std::int64_t& seconds) {
    std::tm tm{};
    if (text.size() != 19 || std::sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d", &tm.tm_year, &tm.tm_mon,
                                         &tm.tm_mday, &tm.tm_hour, &tm.tm_min, &tm.tm_sec) != 6)
        return false;
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    seconds = timegm(&tm);
    return Written(seconds) == text;
}

void HoldMoves(const std::string& text, std::int64_t seconds, int by) {
    using vek_date::DateTime;
    DateTime days(text);
    DateTime moved(text);
    fuzz::HoldEqual(days.AddDays(by).AsDateTime(), Written(seconds + by * kDay),
                    "days are moved, inside the years");
    fuzz::HoldEqual(moved.AddSeconds(by).AsDateTime(), Written(seconds + by),
                    "seconds are moved, inside the years");
    fuzz::Hold(DateTime(days.AsDateTime()) == days, "a moved moment's text gives it back");
    if (by == 0) return;
    const DateTime start(text);
    fuzz::Hold(by > 0 ? days >= start && moved >= start : days <= start && moved <= start,
               "a move goes its own way");
    fuzz::Hold(by > 0 ? days >= moved : days <= moved, "days are longer than seconds");
}

void HoldOrder(const std::string& text, int a, int b) {
    vek_date::DateTime one(text);
    vek_date::DateTime other(text);
    one.AddDays(std::min(a, b)).AddSeconds(a);
    other.AddDays(std::max(a, b)).AddSeconds(a);
    fuzz::Hold(one <= other, "the order of moves is the order of moments");
    fuzz::Hold((one <=> other) == (one.AsDateTime() <=> other.AsDateTime()),
               "moments sort as their texts do");
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    const int a = input.ConsumeIntegral<int>();
    const int b = input.ConsumeIntegral<int>();
    const std::string text = TakeRest(input);
    const std::string form = plain::Trim(text);
    std::int64_t seconds = 0;
    const bool is_date = Read(form, seconds);
    try {
        HoldEqual(vek_date::DateTime(text).AsDateTime(), form, "an accepted text comes back");
        Hold(is_date, "only moments of the calendar are accepted");
    } catch (const vek_err::Error& error) {
        Hold(!is_date, "every moment of the calendar is accepted");
        HoldEqual(error.type(), "value", "what is refused is a value");
        return;
    }
    HoldMoves(form, seconds, a);
    HoldMoves(form, seconds, b);
    HoldOrder(form, a, b);
}
