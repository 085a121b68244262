#include "zelvek/jobs/run_log.h"

#include <gtest/gtest.h>

namespace zelvek {
namespace {

std::vector<std::string> Split(const std::string& log) {
    std::vector<std::string> entries;
    for (const auto& event : SplitLog(log, "NOW")) {
        entries.push_back(event.time + "|" + event.state + "|" + event.event + "|" + event.detail);
    }
    return entries;
}

// Behaviours of: The job's record (ambrin.data.edit)

// Behaviour: Details hold any text: a log is split only ...
TEST(SplitLog, ReadsTheFourPartsOfAnEntry) {
    EXPECT_EQ(Split("2026-01-02 03:04:05,failed,new_order,no luck"),
              std::vector<std::string>{"2026-01-02 03:04:05|failed|new_order|no luck"});
    EXPECT_EQ(Split("2026-01-02 03:04:05,processing,challenge_start,"),
              std::vector<std::string>{"2026-01-02 03:04:05|processing|challenge_start|"});
    EXPECT_TRUE(Split("").empty());
}

// Behaviour: Details hold any text: a log is split only ...
TEST(SplitLog, SplitsOnlyWhereAnEntryBegins) {
    EXPECT_EQ(Split("2026-01-02 03:04:05,a,b,x;y;;z,;2026-01-02 03:04:06,c,d,"),
              (std::vector<std::string>{"2026-01-02 03:04:05|a|b|x;y;;z,", "2026-01-02 03:04:06|c|d|"}));
    for (const std::string detail :
         {";2026-01-02 03:04:05", ";2026-01-02", ";2026-01-02 03:04:05;", ";2026-1-2 03:04:05,",
          "; 2026-01-02 03:04:05,", ";", ";;", ";20x6-01-02 03:04:05,"}) {
        EXPECT_EQ(Split("2026-01-02 03:04:05,a,b," + detail),
                  std::vector<std::string>{"2026-01-02 03:04:05|a|b|" + detail});
    }
}

// Behaviour: A log that begins without a time, or lacks parts, loses nothing
TEST(SplitLog, WhatBeginsWithoutATimeIsKeptAsADetail) {
    EXPECT_EQ(Split("no entry"), std::vector<std::string>{"NOW|||no entry"});
    EXPECT_EQ(Split("lost;2026-01-02 03:04:05,a,b,c"),
              (std::vector<std::string>{"NOW|||lost", "2026-01-02 03:04:05|a|b|c"}));
}

// Behaviour: A log that begins without a time, or lacks ...
TEST(SplitLog, MissingPartsAreEmpty) {
    EXPECT_EQ(Split("2026-01-02 03:04:05,"), std::vector<std::string>{"2026-01-02 03:04:05|||"});
    EXPECT_EQ(Split("2026-01-02 03:04:05,a"), std::vector<std::string>{"2026-01-02 03:04:05|a||"});
}

}  // namespace
}  // namespace zelvek
