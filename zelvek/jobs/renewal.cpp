#include "zelvek/jobs/renewal.h"

#include <algorithm>
#include <cstdint>

#include "vek/str.h"
#include "zelvek/base/log.h"

namespace zelvek {

namespace {

using vek_date::DateTime;

constexpr int kStartedAtOnce = 100;
constexpr std::int64_t kShortLived = 10L * 24 * 3600;  // seconds
constexpr std::int64_t kMostLeft = 10L * 365 * 24 * 3600;

}  // namespace

restarts::Validity ValidityOf(const DateTime& from, const DateTime& until, double spread) {
    const std::int64_t lifetime = until.SecondsSince(from);
    const std::int64_t left =
        std::clamp<std::int64_t>(lifetime < kShortLived ? lifetime / 2 : lifetime / 3, 0, kMostLeft);
    const auto earlier = static_cast<std::int64_t>(static_cast<double>(left) / 4 * spread);
    constexpr int kHalfDay = 12 * 3600;
    const int asked = static_cast<int>(kHalfDay * spread);
    return {until.AsDateTime(), DateTime(until).AddSeconds(-static_cast<int>(left + earlier)).AsDateTime(),
            DateTime().AddSeconds(asked).AsDateTime()};
}

double RandomSpread() {
    double spread = 0;
    for (const char byte : str::Random(3)) spread = (spread + static_cast<unsigned char>(byte)) / 256;
    return spread;
}

void StartDueAnew(Transaction& transaction, const std::string& now) {
    for (const int job : restarts::RenewalDue(transaction, now, kStartedAtOnce)) {
        restarts::StartAnew(transaction, job, now, false);
        Log("job " + std::to_string(job) + ": its certificate is renewed");
    }
    for (const int job : restarts::StoppedDue(transaction, now, kStartedAtOnce)) {
        restarts::StartAnew(transaction, job, now, false);
        Log("job " + std::to_string(job) + ": it was stopped, and is tried anew");
    }
}

}  // namespace zelvek
