#pragma once

#include <compare>
#include <cstdint>
#include <string>

namespace vek_date {

/// A moment in UTC, to the second.
class DateTime {
public:
    /// Now.
    DateTime();

    /// Reads "YYYY-MM-DD HH:MM:SS" in UTC, a real date of the calendar, surrounding white space allowed.
    /// Errors: vek_err::Error("date", "value", text) for anything else, an empty text included.
    explicit DateTime(const std::string& text);

    /// Moves the moment by whole days or seconds, backwards where negative; a result outside the years 1 to
    /// 9999 becomes the nearest moment inside them.
    DateTime& AddDays(int days);
    DateTime& AddSeconds(int seconds);

    /// Seconds from `other` to this moment; negative where `other` is later.
    std::int64_t SecondsSince(const DateTime& other) const { return seconds_ - other.seconds_; }

    /// "YYYY-MM-DD HH:MM:SS" in UTC, the form that the constructor reads.
    std::string AsDateTime() const;

    // NOLINTNEXTLINE(modernize-use-nullptr): the check misreads the comparison
    auto operator<=>(const DateTime&) const = default;

private:
    std::int64_t seconds_;  // since 1970-01-01 00:00:00 UTC
};

}  // namespace vek_date
