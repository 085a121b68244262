#include "acme/retry_after.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include "acme/authority.h"
#include "vek/date.h"
#include "vek/err.h"
#include "vek/str.h"

namespace {

constexpr std::int64_t kLeastSeconds = 1;
constexpr std::int64_t kMostSeconds = 86400;
const std::string kDefaultDelay = "1";  // seconds

/// Two digits; empty for a text that is no month.
std::string MonthNumber(const std::string& name) {
    static const std::string kNames = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const std::size_t at = name.size() == 3 ? kNames.find(name) : std::string::npos;
    if (at == std::string::npos || at % 3 != 0) return "";
    const std::string number = str::Str(static_cast<long>(at / 3 + 1));
    return number.size() == 1 ? "0" + number : number;
}

/// "Sun, 06 Nov 1994 08:49:37 GMT", the one form of a date that is still written (RFC 9110 section 5.6.7).
std::optional<vek_date::DateTime> ReadHttpDate(const std::string& text) {
    const std::vector<std::string> words = str::Split(text, " ");
    if (words.size() != 6 || words[5] != "GMT") return std::nullopt;
    try {
        return vek_date::DateTime(words[3] + "-" + MonthNumber(words[2]) + "-" + words[1] + " " + words[4]);
    } catch (const vek_err::Error&) {
        return std::nullopt;
    }
}

}  // namespace

int RetryAfter(const AcmeResponse& response) {
    const std::string text = HeaderOf(response, "retry-after", kDefaultDelay);
    const auto date = kAuthority.style.retry_after_dates ? ReadHttpDate(text) : std::nullopt;
    if (!date) return str::Int(text);
    return static_cast<int>(
        std::clamp(date->SecondsSince(vek_date::DateTime()), kLeastSeconds, kMostSeconds));
}
