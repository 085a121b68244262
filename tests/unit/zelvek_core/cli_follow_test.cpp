#include "zelvek/cli/log_follower.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace zelvek::cli {
namespace {

class Follow : public ::testing::Test {
protected:
    Follow() {
        std::string pattern = (std::filesystem::temp_directory_path() / "follow.XXXXXX").string();
        folder_ = ::mkdtemp(pattern.data());
        file_ = folder_ / "ambrin.log";
    }
    ~Follow() override { std::filesystem::remove_all(folder_); }

    void Write(const std::string& text) const { std::ofstream(file_, std::ios::app) << text; }

    std::filesystem::path folder_;
    std::filesystem::path file_;
};

// Behaviours of: Command line

// Behaviour: A run's log lines are followed while it runs ...
TEST_F(Follow, PicksOneProcesssEntriesWithTheirFurtherLines) {
    LogFollower log(file_, 0);
    EXPECT_EQ(log.Next(7), "");
    Write("2026-01-01 00:00:00 [7] TRACE a one\nmore\n2026-01-01 00:00:00 [70] TRACE b two\nof b\n");
    EXPECT_EQ(log.Next(7), "2026-01-01 00:00:00 [7] TRACE a one\nmore\n");
    Write("of b too\n2026-01-01 00:00:01 [7] TRACE a three\n");
    EXPECT_EQ(log.Next(7), "2026-01-01 00:00:01 [7] TRACE a three\n");
}

// Behaviour: A run's log lines are followed while it runs ...
TEST_F(Follow, AHalfWrittenLineIsWaitedFor) {
    LogFollower log(file_, 0);
    Write("2026-01-01 00:00:00 [7] TR");
    EXPECT_EQ(log.Next(7), "");
    Write("ACE x\n");
    EXPECT_EQ(log.Next(7), "2026-01-01 00:00:00 [7] TRACE x\n");
    EXPECT_EQ(log.Next(7), "");
}

// Behaviour: Following a log shows what is written from then on
TEST_F(Follow, WhatWasThereBeforeIsLeftOut) {
    Write("2026-01-01 00:00:00 [7] TRACE old\n");
    LogFollower log(file_, LogFollower::EndOf(file_));
    Write("2026-01-01 00:00:00 [7] TRACE new\n");
    EXPECT_EQ(log.Next(7), "2026-01-01 00:00:00 [7] TRACE new\n");
}

// Behaviour: A log that is exchanged while it is followed is read from its beginning
TEST_F(Follow, AnExchangedFileIsReadFromItsBeginning) {
    Write("2026-01-01 00:00:00 [7] TRACE a long old line\n");
    LogFollower log(file_, LogFollower::EndOf(file_));
    std::filesystem::remove(file_);
    Write("2026-01-01 00:00:00 [7] TRACE new\n");
    EXPECT_EQ(log.Next(7), "2026-01-01 00:00:00 [7] TRACE new\n");
}

}  // namespace
}  // namespace zelvek::cli
