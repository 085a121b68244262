// Integers: the number at the start of any text, held inside 32 bits.
#include <limits>

#include "support/plain.h"
#include "support/target.h"
#include "vek/str.h"

namespace {

/// By the value's digits in an integer that is wide enough for those that count.
int Wide(const std::string& text) {
    constexpr std::int64_t kMost = std::int64_t{1} << 40U;
    std::string rest = text;
    while (!rest.empty() && plain::IsSpace(rest[0])) rest.erase(0, 1);
    const bool minus = rest.starts_with("-");
    if (minus || rest.starts_with("+")) rest.erase(0, 1);
    std::int64_t value = 0;
    for (const char c : rest.substr(0, rest.find_first_not_of("0123456789")))
        value = std::min(kMost, value * 10 + (c - '0'));
    value = minus ? -value : value;
    return static_cast<int>(std::max<std::int64_t>(
        std::numeric_limits<int>::min(), std::min<std::int64_t>(std::numeric_limits<int>::max(), value)));
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    const std::string text = TakeRest(input);
    const int value = str::Int(text);
    Hold(value == Wide(text), "the number is the nearest of 32 bits");
    Hold(str::Int(str::Str(value)) == value, "a number's text gives it back");
    Hold(str::Int("\t\n\v\f\r " + text) == value, "leading white space is skipped");
}
