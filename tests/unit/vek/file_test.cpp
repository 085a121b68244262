#include "vek/file.h"

#include <gtest/gtest.h>

namespace {

// Behaviours of: Texts, dates, names, XML

// Behaviour: A file's name is what stands after the last slash
TEST(FileName, IsWhatStandsAfterTheLastSlash) {
    EXPECT_EQ(vek_file::Name("plugins_int_build/ambrin/ambrin_bin"), "ambrin_bin");
    EXPECT_EQ(vek_file::Name("/name"), "name");
}

// Behaviour: A file's name is what stands after the last ...
TEST(FileName, OfAPathWithoutSlashIsThePath) { EXPECT_EQ(vek_file::Name("name.cpp"), "name.cpp"); }

// Behaviour: The file name of a path that ends with a slash, and of none, is empty
TEST(FileName, OfAFolderOrNothingIsEmpty) {
    EXPECT_EQ(vek_file::Name("folder/"), "");
    EXPECT_EQ(vek_file::Name(""), "");
}

}  // namespace
