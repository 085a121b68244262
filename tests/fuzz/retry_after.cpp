// The pause that an authority asks for: a date counts just where the C library writes it in the same words.
#include "acme/retry_after.h"

#include <algorithm>
#include <ctime>
#include <optional>

#include "double/vek_double.h"
#include "support/plain.h"
#include "support/target.h"
#include "vek/str.h"

namespace {

constexpr const char* kNow = "2030-06-01 12:00:00";
constexpr std::int64_t kNowSeconds = 1906545600;
constexpr std::int64_t kFirst = -62135596800;  // 0001-01-01 00:00:00
constexpr std::int64_t kDay = 86400;

std::vector<std::string> Words(const std::string& text) {
    std::vector<std::string> words;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(' ', begin), text.size());
        if (end > begin) words.push_back(plain::Trim(text.substr(begin, end - begin)));
        begin = end + 1;
    }
    return words;
}

/// As a date is written, without the day of the week and the zone.
std::string Written(const std::tm& tm) {
    char text[64];
    const std::size_t size = std::strftime(text, sizeof(text), "%d %b ", &tm);
    std::snprintf(text + size, sizeof(text) - size, "%04d %02d:%02d:%02d", tm.tm_year + 1900, tm.tm_hour,
                  tm.tm_min, tm.tm_sec);
    return text;
}

std::optional<std::int64_t> Date(const std::vector<std::string>& words) {
    if (words.size() != 6 || words[5] != "GMT") return std::nullopt;
    const std::string date = plain::Join({words[1], words[2], words[3], words[4]}, " ");
    std::tm tm{};
    if (!strptime(date.c_str(), "%d %b %Y %H:%M:%S", &tm)) return std::nullopt;
    const std::int64_t seconds = timegm(&tm);
    return Written(tm) == date && seconds >= kFirst ? std::optional(seconds) : std::nullopt;
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    vek_double::World world;
    world.SetNow(kNow);
    AcmeResponse response(200, "");
    const std::string text = TakeRest(input);
    response.headers["retry-after"] = text;
    const std::optional<std::int64_t> date = Date(Words(text));
    const std::int64_t expected =
        date ? std::clamp<std::int64_t>(*date - kNowSeconds, 1, kDay) : str::Int(text);
    HoldEqual(std::to_string(RetryAfter(response)), std::to_string(expected),
              "a date asks for the time until then, anything else is read as a number");
}
