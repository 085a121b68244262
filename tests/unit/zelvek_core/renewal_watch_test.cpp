#include "zelvek/service/renewal_watch.h"

#include <gtest/gtest.h>

namespace zelvek {
namespace {

using renewal_info::Suggestion;
using renewal_info::Window;
using vek_date::DateTime;

const std::string kToday = "2031-01-01 00:00:00";

Job Installed() {
    Job job;
    job.expires = "2031-02-01 00:00:00";
    job.renew = "2031-01-20 00:00:00";
    return job;
}

Suggestion Between(const std::string& start, const std::string& end, int retry_after = 0) {
    return {Window{DateTime(start), DateTime(end)}, retry_after};
}

// Behaviours of: Scheduling

// Behaviour: A suggested window replaces the time of the renewal, be it later or earlier; one that has passed
// means now
TEST(SuggestedRenewal, LiesInTheWindow) {
    const auto later =
        Suggested(Installed(), "k.1", Between("2031-01-25 00:00:00", "2031-01-26 00:00:00"), kToday);
    EXPECT_GE(later.renew, "2031-01-25 00:00:00");
    EXPECT_LE(later.renew, "2031-01-26 00:00:00");
    EXPECT_EQ(later.expires, Installed().expires);
    EXPECT_EQ(
        Suggested(Installed(), "k.1", Between("2030-12-01 00:00:00", "2030-12-02 00:00:00"), kToday).renew,
        kToday);
}

// Behaviour: A renewal that is due already stays so, whatever is suggested
TEST(SuggestedRenewal, LeavesADueOneAlone) {
    Job due = Installed();
    due.renew = "2030-12-31 00:00:00";
    for (const auto& window : {Between("2031-01-25 00:00:00", "2031-01-26 00:00:00"),
                               Between("2030-12-01 00:00:00", "2030-12-02 00:00:00")})
        EXPECT_EQ(Suggested(due, "k.1", window, kToday).renew, due.renew);
}

// Behaviour: A window that lasts until the certificate has ended, and an authority that suggests none, change
// nothing
TEST(SuggestedRenewal, NeverComesTooLate) {
    EXPECT_EQ(
        Suggested(Installed(), "k.1", Between("2031-01-25 00:00:00", "2031-02-01 00:00:00"), kToday).renew,
        Installed().renew);
    EXPECT_EQ(Suggested(Installed(), "k.1", {}, kToday).renew, Installed().renew);
}

// Behaviour: The authority is asked at most twice a day, less often where it says so, and every three days at
// least
TEST(SuggestedRenewal, IsAskedForTwiceADayAtMost) {
    const auto ask = [](int retry_after) {
        return Suggested(Installed(), "k.1",
                         Between("2031-01-25 00:00:00", "2031-01-26 00:00:00", retry_after), kToday)
            .ask;
    };
    EXPECT_EQ(ask(0), "2031-01-01 12:00:00");
    EXPECT_EQ(ask(60), "2031-01-01 12:00:00");
    EXPECT_EQ(ask(24 * 3600), "2031-01-02 00:00:00");
    EXPECT_EQ(ask(2'000'000'000), "2031-01-04 00:00:00");
}

}  // namespace
}  // namespace zelvek
