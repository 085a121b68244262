#include "zelvek/jobs/renewal.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "vek/str.h"
#include "zelvek/base/log.h"
#include "zelvek/store/jobs.h"

namespace zelvek {

namespace {

using vek_date::DateTime;

constexpr int kStartedAtOnce = 100;
constexpr int kMoments = 8;                            // of which a renewal takes the best
constexpr int kHour = 3600;                            // seconds
constexpr std::int64_t kShortLived = 10L * 24 * 3600;  // seconds
constexpr std::int64_t kMostLeft = 10L * 365 * 24 * 3600;

}  // namespace

restarts::Validity ValidityOf(const DateTime& from, const DateTime& until, double spread, Certificate which) {
    const std::int64_t lifetime = until.SecondsSince(from);
    const std::int64_t left =
        std::clamp<std::int64_t>(lifetime < kShortLived ? lifetime / 2 : lifetime / 3, 0, kMostLeft);
    const std::int64_t range = which == Certificate::kFirst
                                   ? std::clamp<std::int64_t>(lifetime - left - lifetime / 6, 0, kMostLeft)
                                   : left / 4;
    const auto earlier = static_cast<std::int64_t>(static_cast<double>(range) * spread);
    constexpr int kHalfDay = 12 * kHour;
    const int asked = static_cast<int>(kHalfDay * spread);
    return {until.AsDateTime(), DateTime(until).AddSeconds(-static_cast<int>(left + earlier)).AsDateTime(),
            DateTime().AddSeconds(asked).AsDateTime()};
}

restarts::Validity PlanRenewal(Transaction& transaction, const DateTime& from, const DateTime& until,
                               Certificate which) {
    restarts::Validity best;
    long long fewest = 0;
    for (int i = 0; i < kMoments; ++i) {
        restarts::Validity validity = ValidityOf(from, until, RandomSpread(), which);
        const DateTime moment(validity.renew);
        const long long planned =
            restarts::PlannedBetween(transaction, DateTime(moment).AddSeconds(-kHour / 2).AsDateTime(),
                                     DateTime(moment).AddSeconds(kHour / 2).AsDateTime());
        if (best.renew.empty() || planned < fewest) {
            best = std::move(validity);
            fewest = planned;
        }
    }
    return best;
}

void NoteInstalled(Transaction& transaction, const std::string& user, const std::string& folder,
                   const DateTime& from, const DateTime& until) {
    const auto job = jobs::OfFolder(transaction, user, folder);
    const bool later = job && !jobs::FindShown(transaction, *job).expires.empty();
    const Certificate which = later ? Certificate::kLater : Certificate::kFirst;
    restarts::SetValidity(transaction, user, folder, PlanRenewal(transaction, from, until, which));
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
