#include "vek/file.h"

#include <gtest/gtest.h>

namespace {

TEST(FileName, IsWhatStandsAfterTheLastSlash) {
    EXPECT_EQ(vek_file::Name("plugins_int_build/ambrin/ambrin_bin"), "ambrin_bin");
    EXPECT_EQ(vek_file::Name("/name"), "name");
}

TEST(FileName, OfAPathWithoutSlashIsThePath) { EXPECT_EQ(vek_file::Name("name.cpp"), "name.cpp"); }

TEST(FileName, OfAFolderOrNothingIsEmpty) {
    EXPECT_EQ(vek_file::Name("folder/"), "");
    EXPECT_EQ(vek_file::Name(""), "");
}

}  // namespace
