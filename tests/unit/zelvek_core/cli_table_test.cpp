#include "zelvek/cli/table.h"

#include <gtest/gtest.h>

namespace zelvek::cli {
namespace {

// Behaviours of: Command line

// Behaviour: A table's columns are aligned by characters, not by bytes, and no line ends with blanks
TEST(Table, AlignsColumnsByCharacters) {
    EXPECT_EQ(Table({"NAME", "USER"}, {{"bücher", "anna"}, {"x", ""}}),
              "NAME    USER\n"
              "bücher  anna\n"
              "x\n");
    EXPECT_EQ(Table({"NAME", "USER"}, {}), "NAME  USER\n");
}

// Behaviour: No text from outside controls the terminal ...
TEST(Table, ACellStaysOnItsLine) { EXPECT_EQ(Table({"A", "B"}, {{"x\ny\x1b", "z"}}), "A     B\nx y   z\n"); }

// Behaviour: No text from outside controls the terminal ...
TEST(Table, ACellHasTheWidthOfWhatIsShown) {
    EXPECT_EQ(Table({"A", "B"}, {{"\x80\x80\x80\u009b\u202e.", "z"}, {"ü", "y"}}),
              "A       B\n"
              "     .  z\n"
              "ü       y\n");
}

}  // namespace
}  // namespace zelvek::cli
