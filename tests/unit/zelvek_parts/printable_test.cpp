#include "zelvek/base/text.h"

#include <gmock/gmock.h>

namespace {

using zelvek::LastLines;
using zelvek::Printable;

// Behaviours of: Command line

// Behaviour: No text from outside controls the terminal ...
TEST(TextWithoutControls, HasTheReplacementForEachOfThem) {
    EXPECT_EQ(zelvek::WithoutControls(std::string("a\0b\n\t\x1b[31mc\x7f", 12), ' '), "a b   [31mc ");
    EXPECT_EQ(zelvek::WithoutControls("a\r~ \x80", '.'), "a.~ \x80");
}

// Behaviour: No text from outside controls the terminal ...
TEST(PrintableText, HasNoControlCharacters) {
    EXPECT_EQ(Printable(std::string("a\0b\n\x1b[31mc\x7f", 11)), "a?b??[31mc?");
    EXPECT_EQ(Printable("bücher.example"), "bücher.example");
}

// Behaviour: A text of more than 300 bytes is cut between characters for a message
TEST(PrintableText, IsCutBetweenCharacters) {
    std::string umlauts = "x";
    for (int i = 0; i < 200; ++i) umlauts += "\xc3\xbc";
    EXPECT_EQ(Printable(umlauts), umlauts.substr(0, 299) + "...");
    EXPECT_EQ(Printable(std::string(300, 'a')), std::string(300, 'a'));
}

// Behaviour: Of a tool's output the last five lines are told, on one line
TEST(LastLinesOfAnOutput, AreAtMostFive) {
    EXPECT_EQ(LastLines(""), "");
    EXPECT_EQ(LastLines("one\n"), "one");
    EXPECT_EQ(LastLines("1\n2\n3\n4\n5\n6\n7\n"), "3 4 5 6 7");
    EXPECT_EQ(LastLines("a\r\n\n\nb\tc\n"), "a b?c");
}

// Behaviour: Of a tool's output at most a thousand bytes are told
TEST(LastLinesOfAnOutput, AreAtMostAThousandBytes) {
    EXPECT_EQ(LastLines(std::string(5'000'000, 'x')), std::string(1000, 'x'));
}

}  // namespace
