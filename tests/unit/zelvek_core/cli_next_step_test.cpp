#include "zelvek/records/next_step.h"

#include <gtest/gtest.h>

namespace zelvek::records {
namespace {

std::string Next(const std::map<std::string, std::string>& values) {
    std::string text = "<doc>";
    for (const auto& [key, value] : values) text += "<" + key + ">" + value + "</" + key + ">";
    const vek_client::Result answer(text + "</doc>");
    return NextStep(answer.xml().GetNode("/doc"), "2031-02-03 12:00:00");
}

// Behaviours of: Command line

// Behaviour: What happens to a job next is told in few words, with a time of this day or a day
TEST(NextSteps, AreToldInFewWords) {
    EXPECT_EQ(Next({{"due", "2031-02-03 12:30:01"}}), "runs 12:30 UTC");
    EXPECT_EQ(Next({{"due", "2031-02-04 12:30:01"}}), "runs 2031-02-04 12:30 UTC");
    EXPECT_EQ(Next({{"due", "2031-02-03 12:00:00"}}), "runs now");
    EXPECT_EQ(Next({{"due", "2031-02-03 11:30:01"}, {"failures", "1"}}), "runs now (1 failure)");
    EXPECT_EQ(Next({{"due", "2031-02-03 12:30:01"}, {"failures", "2"}}), "next try 12:30 UTC (2 failures)");
    EXPECT_EQ(Next({{"failed", "on"}, {"due", "2031-02-04 12:30:01"}, {"failures", "9"}}),
              "begins anew 2031-02-04 12:30 UTC (9 failures)");
    EXPECT_EQ(Next({{"failed", "on"}, {"due", "2031-02-03 11:30:01"}}), "begins anew now");
    EXPECT_EQ(Next({{"verified", "on"}, {"renew", "2031-05-04 12:30:01"}}), "renews 2031-05-04");
    EXPECT_EQ(Next({{"verified", "on"}, {"renew", "2031-02-03 12:00:00"}}), "renews now");
    EXPECT_EQ(Next({{"verified", "on"}}), "");
    EXPECT_EQ(Next({{"processing", "on"}}), "a run is under way");
    EXPECT_EQ(Next({{"verified", "on"}, {"paused", "on"}}), "none until it is resumed");
    EXPECT_EQ(Next({{"due", "never"}}), "runs never") << "of a damaged row";
    EXPECT_EQ(DayOf("2031-02-03 12:00:00"), "2031-02-03");
    EXPECT_EQ(DayOf(""), "");
}

}  // namespace
}  // namespace zelvek::records
