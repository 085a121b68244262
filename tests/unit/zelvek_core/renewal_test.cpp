#include "zelvek/jobs/renewal.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace zelvek {
namespace {

using vek_date::DateTime;

std::string Renewal(const std::string& from, const std::string& until, double spread) {
    const restarts::Validity validity = ValidityOf(DateTime(from), DateTime(until), spread);
    EXPECT_EQ(validity.expires, until);
    return validity.renew;
}

// Behaviours of: Scheduling

// Behaviour: A certificate is renewed when a third of its lifetime is left, or half of it where it lives less
// than
//   ten days, and some time before, so that not all are renewed at once
TEST(Renewal, BeginsWhenAThirdOfTheLifetimeIsLeft) {
    EXPECT_EQ(Renewal("2026-01-01 00:00:00", "2026-04-01 00:00:00", 0), "2026-03-02 00:00:00");
    EXPECT_EQ(Renewal("2026-01-01 00:00:00", "2026-04-01 00:00:00", 1), "2026-02-22 12:00:00");
    EXPECT_EQ(Renewal("2026-01-01 00:00:00", "2026-01-11 00:00:00", 0), "2026-01-07 16:00:00");
}

// Behaviour: A certificate is renewed when a third of its ...
TEST(Renewal, OfAShortLivedCertificateBeginsHalfWay) {
    EXPECT_EQ(Renewal("2026-01-01 00:00:00", "2026-01-07 00:00:00", 0), "2026-01-04 00:00:00");
    EXPECT_EQ(Renewal("2026-01-01 00:00:00", "2026-01-07 00:00:00", 1), "2026-01-03 06:00:00");
}

// Behaviour: A job's first certificate is renewed between a sixth of its lifetime and the usual time, so that
// jobs
//   that were added together part
TEST(Renewal, OfAFirstCertificateMayBeginEarly) {
    const auto renewal = [](const std::string& until, double spread) {
        return ValidityOf(DateTime("2026-01-01 00:00:00"), DateTime(until), spread, Certificate::kFirst)
            .renew;
    };
    EXPECT_EQ(renewal("2026-04-01 00:00:00", 0), "2026-03-02 00:00:00");
    EXPECT_EQ(renewal("2026-04-01 00:00:00", 1), "2026-01-16 00:00:00");
    EXPECT_EQ(renewal("2026-01-07 00:00:00", 0), "2026-01-04 00:00:00");
    EXPECT_EQ(renewal("2026-01-07 00:00:00", 1), "2026-01-02 00:00:00");
}

// Behaviour: Dates of a certificate that cannot be meant harm nothing
TEST(Renewal, OfImpossibleDatesIsSomeTimeBeforeTheEnd) {
    EXPECT_EQ(Renewal("2026-01-07 00:00:00", "2026-01-01 00:00:00", 1), "2026-01-01 00:00:00");
    EXPECT_LT(Renewal("0001-01-01 00:00:00", "9999-12-31 23:59:59", 1), "9999-12-31 23:59:59");
}

// Behaviour: A certificate is renewed when a third of its ...
TEST(Renewal, IsSpread) {
    double least = 1;
    double most = 0;
    for (int i = 0; i < 1000; ++i) {
        const double spread = RandomSpread();
        least = std::min(least, spread);
        most = std::max(most, spread);
    }
    EXPECT_GE(least, 0);
    EXPECT_LT(least, 0.1);
    EXPECT_GT(most, 0.9);
    EXPECT_LE(most, 1);
}

}  // namespace
}  // namespace zelvek
