#include "zelvek/cli/table.h"

#include <gtest/gtest.h>

namespace zelvek::cli {
namespace {

TEST(Table, AlignsColumnsByCharacters) {
    EXPECT_EQ(Table({"NAME", "USER"}, {{"bücher", "anna"}, {"x", ""}}),
              "NAME    USER\n"
              "bücher  anna\n"
              "x\n");
    EXPECT_EQ(Table({"NAME", "USER"}, {}), "NAME  USER\n");
}

TEST(Table, ACellStaysOnItsLine) { EXPECT_EQ(Table({"A", "B"}, {{"x\ny\x1b", "z"}}), "A     B\nx y   z\n"); }

}  // namespace
}  // namespace zelvek::cli
