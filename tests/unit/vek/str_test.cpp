#include "vek/str.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kNul(1, '\0');

// Behaviours of: Texts, dates, names, XML

// Behaviour: Numbers are written in decimal
TEST(Str, WritesDecimalText) {
    EXPECT_EQ(str::Str(0), "0");
    EXPECT_EQ(str::Str(-17), "-17");
    EXPECT_EQ(str::Str(std::numeric_limits<long>::max()), "9223372036854775807");
    EXPECT_EQ(str::Str(std::numeric_limits<long>::min()), "-9223372036854775808");
}

// Behaviour: An integer is read after leading blanks and ...
TEST(Int, ReadsDigitsWithASign) {
    EXPECT_EQ(str::Int("42"), 42);
    EXPECT_EQ(str::Int("-42"), -42);
    EXPECT_EQ(str::Int("+42"), 42);
    EXPECT_EQ(str::Int("007"), 7);
}

// Behaviour: An integer is read after leading blanks and a sign, up to the first other character, and is 0
//   without digits
TEST(Int, SkipsWhiteSpaceAhead) { EXPECT_EQ(str::Int(" \t\n\r\f\v12"), 12); }

// Behaviour: An integer is read after leading blanks and ...
TEST(Int, StopsAtTheFirstOtherCharacter) {
    EXPECT_EQ(str::Int("12ab"), 12);
    EXPECT_EQ(str::Int("12.9"), 12);
    EXPECT_EQ(str::Int("1 2"), 1);
    EXPECT_EQ(str::Int("12" + kNul + "3"), 12);
    EXPECT_EQ(str::Int("Wed, 21 Oct 2015 07:28:00 GMT"), 0);
}

// Behaviour: An integer is read after leading blanks and ...
TEST(Int, KnowsDigitsAndWhiteSpaceAndNothingBesideThem) {
    EXPECT_EQ(str::Int("1023456789"), 1023456789);
    for (const char* text : {"1/2", "1:2"}) EXPECT_EQ(str::Int(text), 1) << text;
    for (const char* text : {"\b12",
                             "\x0e"
                             "12",
                             "~12", "!12"})
        EXPECT_EQ(str::Int(text), 0) << text;
}

// Behaviour: An integer is read after leading blanks and ...
TEST(Int, IsZeroWithoutDigits) {
    EXPECT_EQ(str::Int(""), 0);
    EXPECT_EQ(str::Int("   "), 0);
    EXPECT_EQ(str::Int("-"), 0);
    EXPECT_EQ(str::Int("+-3"), 0);
    EXPECT_EQ(str::Int("- 3"), 0);
    EXPECT_EQ(str::Int("x1"), 0);
}

// Behaviour: An integer beyond 32 bits is the nearest 32-bit one
TEST(Int, ReadsEvery32BitNumber) {
    EXPECT_EQ(str::Int("2147483647"), 2147483647);
    EXPECT_EQ(str::Int("-2147483648"), std::numeric_limits<int>::min());
    EXPECT_EQ(str::Int("-2147483647"), -2147483647);
}

// Behaviour: An integer beyond 32 bits is the nearest ...
TEST(Int, GivesTheNearestNumberBeyond32Bits) {
    EXPECT_EQ(str::Int("2147483648"), 2147483647);
    EXPECT_EQ(str::Int("-2147483649"), std::numeric_limits<int>::min());
    EXPECT_EQ(str::Int("18446744073709551617"), 2147483647);
    EXPECT_EQ(str::Int("-" + std::string(1000, '9')), std::numeric_limits<int>::min());
    EXPECT_EQ(str::Int(std::string(1000, '0') + "5"), 5);
}

// Behaviour: Trimming takes all six white spaces; lower case changes ASCII letters alone
TEST(Trim, TakesEveryWhiteSpaceOffBothEnds) {
    EXPECT_EQ(str::Trim(" \t\n\r\f\va b\v\f\r\n\t "), "a b");
    EXPECT_EQ(str::Trim(" \t "), "");
    EXPECT_EQ(str::Trim(""), "");
    EXPECT_EQ(str::Trim("\xc2\xa0"), "\xc2\xa0");
    EXPECT_EQ(str::Trim("~\b\x0e~"), "~\b\x0e~");
    EXPECT_EQ(str::Trim(" " + kNul + " "), kNul);
}

// Behaviour: A text can be trimmed in place
TEST(Trim, WorksInPlace) {
    std::string text = "  x ";
    str::inpl::Trim(text);
    EXPECT_EQ(text, "x");
}

// Behaviour: Trimming takes all six white spaces; lower ...
TEST(Lower, ChangesAsciiLettersAlone) {
    EXPECT_EQ(str::Lower("AZaz09-[@"), "azaz09-[@");
    EXPECT_EQ(str::Lower("\xc3\x84"), "\xc3\x84");
}

// Behaviour: A word is cut at the first separator, or at the last; without one the whole text is the word
TEST(GetWord, CutsOffTheTextBeforeTheFirstSeparator) {
    std::string source = "a.b.c";
    EXPECT_EQ(str::GetWord(source, '.'), "a");
    EXPECT_EQ(source, "b.c");
    EXPECT_EQ(str::GetWord(source, "."), "b");
    EXPECT_EQ(source, "c");
}

// Behaviour: A word is cut at the first separator, or ...
TEST(GetWord, TakesEverythingWithoutASeparator) {
    std::string source = "abc";
    EXPECT_EQ(str::GetWord(source, '.'), "abc");
    EXPECT_EQ(source, "");
    EXPECT_EQ(str::GetWord(source, '.'), "");
}

// Behaviour: A separator of several characters counts as a whole, not each of its characters
TEST(GetWord, TakesLongSeparatorsWhole) {
    std::string source = "one\r\ntwo\nthree\r\n";
    EXPECT_EQ(str::GetWord(source, "\r\n"), "one");
    EXPECT_EQ(str::GetWord(source, "\r\n"), "two\nthree");
    EXPECT_EQ(source, "");
}

// Behaviour: The word before a separator that comes first is empty
TEST(GetWord, OfASeparatorAheadIsEmpty) {
    std::string source = "..a";
    EXPECT_EQ(str::GetWord(source, '.'), "");
    EXPECT_EQ(source, ".a");
}

// Behaviour: For an empty separator the whole text is the word
TEST(GetWord, TakesEverythingForAnEmptySeparator) {
    std::string source = "abc";
    EXPECT_EQ(str::GetWord(source, ""), "abc");
    EXPECT_EQ(source, "");
}

// Behaviour: A word is cut at the first separator, or ...
TEST(RGetWord, CutsOffTheTextAfterTheLastSeparator) {
    std::string source = "a\tb\tc";
    EXPECT_EQ(str::RGetWord(source, '\t'), "c");
    EXPECT_EQ(source, "a\tb");
    EXPECT_EQ(str::RGetWord(source, "\t"), "b");
    EXPECT_EQ(source, "a");
}

// Behaviour: A word is cut at the first separator, or ...
TEST(RGetWord, TakesEverythingWithoutASeparator) {
    std::string source = "abc";
    EXPECT_EQ(str::RGetWord(source, '.'), "abc");
    EXPECT_EQ(source, "");
}

// Behaviour: A word is cut at the first separator, or ...
TEST(RGetWord, SplitsAtTheLastBlankLine) {
    std::string source = "leaf\n\nmiddle\n\nroot\n";
    EXPECT_EQ(str::RGetWord(source, "\n\n"), "root\n");
    EXPECT_EQ(source, "leaf\n\nmiddle");
}

// Behaviour: The word after a separator that comes last is empty
TEST(RGetWord, OfASeparatorAtTheEndIsEmpty) {
    std::string source = "a.";
    EXPECT_EQ(str::RGetWord(source, '.'), "");
    EXPECT_EQ(source, "a");
}

// Behaviour: For an empty separator the whole text is ...
TEST(RGetWord, TakesEverythingForAnEmptySeparator) {
    std::string source = "abc";
    EXPECT_EQ(str::RGetWord(source, ""), "abc");
    EXPECT_EQ(source, "");
}

// Behaviour: Splitting skips empty pieces first and trims the others then
TEST(Split, SkipsEmptyPieces) {
    EXPECT_THAT(str::Split("  a  b ", " "), ElementsAre("a", "b"));
    EXPECT_THAT(str::Split("", " "), IsEmpty());
    EXPECT_THAT(str::Split("   ", " "), IsEmpty());
}

// Behaviour: Splitting skips empty pieces first and trims ...
TEST(Split, TrimsThePiecesThatAreNotEmpty) {
    EXPECT_THAT(str::Split("a\n b", " "), ElementsAre("a", "b"));
    EXPECT_THAT(str::Split("a, b ,c", ","), ElementsAre("a", "b", "c"));
}

// Behaviour: Splitting skips empty pieces first and trims ...
TEST(Split, LooksForEmptyPiecesBeforeItTrims) {
    EXPECT_THAT(str::Split("a \t b", " "), ElementsAre("a", "", "b"));
}

// Behaviour: Splitting skips empty pieces first and trims ...
TEST(Split, KnowsOneSeparatorOnly) { EXPECT_THAT(str::Split("a\tb c", " "), ElementsAre("a\tb", "c")); }

// Behaviour: A separator of several characters counts ...
TEST(Split, TakesLongSeparatorsWhole) {
    EXPECT_THAT(str::Split("a--b---c", "--"), ElementsAre("a", "b", "-c"));
}

// Behaviour: A text without the separator, or split at an empty one, is one piece
TEST(Split, WithoutASeparatorIsOnePiece) {
    EXPECT_THAT(str::Split("abc", " "), ElementsAre("abc"));
    EXPECT_THAT(str::Split(" abc", ""), ElementsAre("abc"));
}

// Behaviour: Appending an empty part adds nothing, no ...
TEST(Append, PutsTheSeparatorBetweenParts) { EXPECT_EQ(str::Append("a", "b", ", "), "a, b"); }

// Behaviour: Appending an empty part adds nothing, no separator either
TEST(Append, OfAnEmptyPartAddsNothing) {
    EXPECT_EQ(str::Append("", "b", ", "), "b");
    EXPECT_EQ(str::Append("a", "", ", "), "a");
    EXPECT_EQ(str::Append("", "", ", "), "");
}

// Behaviour: Appending an empty part adds nothing, no ...
TEST(Append, WorksInPlace) {
    std::string text;
    for (const char* part : {"a", "", "b"}) str::inpl::Append(text, part, "; ");
    EXPECT_EQ(text, "a; b");
}

// Behaviour: Replacing takes every occurrence, and a table in its order
TEST(Replace, ReplacesEveryOccurrence) {
    EXPECT_EQ(str::Replace("a:b:c", ":", "::"), "a::b::c");
    EXPECT_EQ(str::Replace(":::", ":", ""), "");
    EXPECT_EQ(str::Replace("none", ":", "x"), "none");
}

// Behaviour: Replacing takes every occurrence, and a table ...
TEST(Replace, DoesNotLookAtWhatItPutIn) { EXPECT_EQ(str::Replace("aaa", "aa", "a"), "aa"); }

// Behaviour: Replacing an empty text changes nothing
TEST(Replace, OfNothingChangesNothing) { EXPECT_EQ(str::Replace("abc", "", "x"), "abc"); }

// Behaviour: Replacing takes every occurrence, and a table ...
TEST(Replace, GoesThroughATableInItsOrder) {
    EXPECT_EQ(str::Replace("a+b/c=", {{"+", "-"}, {"/", "_"}, {"=", ""}}), "a-b_c");
    EXPECT_EQ(str::Replace("a", {{"a", "b"}, {"b", "c"}}), "c");
    EXPECT_EQ(str::Replace("b", {{"a", "x"}, {"b", "a"}}), "a");
}

// Behaviour: Replacing takes every occurrence, and a table ...
TEST(Replace, WorksInPlace) {
    std::string text = "a b";
    str::inpl::Replace(text, " ", "");
    EXPECT_EQ(text, "ab");
}

// Behaviour: Texts may hold NUL bytes
TEST(Texts, HoldNulBytes) {
    const std::string text = "a" + kNul + "b";
    EXPECT_EQ(str::Replace(text, kNul, "-"), "a-b");
    EXPECT_THAT(str::Split(text, kNul), ElementsAre("a", "b"));
    EXPECT_EQ(str::Append(text, text, kNul).size(), 7U);
    std::string source = text;
    EXPECT_EQ(str::GetWord(source, '\0'), "a");
}

}  // namespace
