#include "zelvek/cli/table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

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

// Behaviour: On a terminal no table is wider than a hundred columns: its last column goes on in further
// lines,
//   others are shortened, and "…" stands where something is left out
TEST(TableWithAWidth, WrapsItsLastColumn) {
    EXPECT_EQ(Table({"ID", "DETAIL"}, {{"1", "some words that do not fit"}, {"2", "few"}}, 16),
              "ID  DETAIL\n"
              "1   some words\n"
              "    that do not\n"
              "    fit\n"
              "2   few\n");
    EXPECT_EQ(Table({"ID", "DETAIL"}, {{"1", "https://ca.example/x"}}, 14),
              "ID  DETAIL\n"
              "1   https://ca\n"
              "    .example/x\n");
    EXPECT_EQ(Table({"ID", "DETAIL"}, {{"1", "some words that do fit"}}, 26),
              "ID  DETAIL\n"
              "1   some words that do fit\n");
}

// Behaviour: On a terminal no table is wider ...
TEST(TableWithAWidth, ShortensTheWidestOfTheOtherColumns) {
    const std::string line(50, 'b');
    EXPECT_EQ(Table({"A", "NAME", "DETAIL"}, {{"a", "bücherbücherbücher", line}}, 46),
              "A  NAME         DETAIL\n"
              "a  bücherbüch…  " +
                  line.substr(0, 30) + "\n" + "                " + line.substr(30) + "\n");
}

// Behaviour: On a terminal no table is wider ...
TEST(TableWithAWidth, MarksWhatItLeavesOut) {
    const std::string table = Table({"ID", "DETAIL"}, {{"1", std::string(100'000, 'x')}}, 40);
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 9);
    EXPECT_TRUE(table.ends_with("xx…\n")) << table;
}

// Behaviour: On a terminal no table is wider ...
TEST(TableWithAWidth, HasNoWiderLine) {
    const std::vector<std::string> texts{"", "a", std::string(300, 'y'), "ü ü  ü " + std::string(99, 'z'),
                                         std::string(200, ' ') + "b " + std::string(40, 'c')};
    for (const std::string& first : texts) {
        for (const std::string& second : texts) {
            const std::string table = Table({"ONE", "TWO", "THREE"}, {{first, second, first + second}}, 60);
            std::istringstream lines(table);
            for (std::string line; std::getline(lines, line);) {
                const auto characters = std::count_if(line.begin(), line.end(), [](char c) {
                    return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U;
                });
                EXPECT_LE(characters, 60) << table;
            }
        }
    }
}

}  // namespace
}  // namespace zelvek::cli
