#include "zelvek/base/text.h"

#include <gmock/gmock.h>

namespace {

using zelvek::LastLines;
using zelvek::Printable;

// Behaviours of: Command line

// Behaviour: No text from outside controls the terminal ...
TEST(TextWithoutControls, HasTheReplacementForEachOfThem) {
    EXPECT_EQ(zelvek::WithoutControls(std::string("a\0b\n\t\x1b[31mc\x7f", 12), ' '), "a b   [31mc ");
    EXPECT_EQ(zelvek::WithoutControls("a\r~ ", '.'), "a.~ ");
}

// Behaviour: No text from outside controls the terminal ...
TEST(TextWithoutControls, HasTheReplacementForControlCharactersOfSeveralBytesToo) {
    for (const std::string control : {"\u0080", "\u009b", "\u009f", "\u061c", "\u200e", "\u200f", "\u2028",
                                      "\u2029", "\u202a", "\u202e", "\u2066", "\u2069"}) {
        EXPECT_EQ(zelvek::WithoutControls("a" + control + "b", ' '), "a b") << control;
        EXPECT_FALSE(zelvek::IsPlain("a" + control));
    }
    for (const std::string text : {"\u00a0", "\u00fc", "\u061b", "\u200d", "\u2010", "\u2027", "\u202f",
                                   "\u2065", "\u206a", "\U0001f511", "~", ""}) {
        EXPECT_EQ(zelvek::WithoutControls(text, ' '), text) << text;
        EXPECT_TRUE(zelvek::IsPlain(text)) << text;
    }
}

// Behaviour: No text from outside controls the terminal ...
// A terminal may read a stray byte in a character set of its own, in which 0x9b begins a command.
TEST(TextWithoutControls, HasTheReplacementForBytesOfNoCharacter) {
    EXPECT_EQ(zelvek::WithoutControls("a\x9b"
                                      "b\xc3",
                                      '.'),
              "a.b.");
    EXPECT_EQ(zelvek::WithoutControls("\xc0\x9b \xe0\x82\x9b \xed\xa0\x80 \xf4\x90\x80\x80 \xff", '.'),
              ".. ... ... .... .");
    EXPECT_FALSE(zelvek::IsPlain("a\x9b"));
    EXPECT_FALSE(zelvek::IsPlain("\n"));
}

// Behaviour: No text from outside controls the terminal ...
TEST(CharactersOfAText, HaveTheirLengthsAndNumbers) {
    const std::string text = "a\u00fc\u2603\U0001d11e\xff";
    std::size_t at = 0;
    for (const auto& [length, point] : std::vector<std::pair<std::size_t, char32_t>>{
             {1, U'a'}, {2, U'\u00fc'}, {3, U'\u2603'}, {4, U'\U0001d11e'}}) {
        const auto character = zelvek::CharacterAt(text, at);
        ASSERT_TRUE(character);
        EXPECT_EQ(character->length, length);
        EXPECT_EQ(character->point, point);
        at += length;
    }
    EXPECT_FALSE(zelvek::CharacterAt(text, at));
    EXPECT_FALSE(zelvek::CharacterAt(text, at + 1)) << "the end";
    EXPECT_FALSE(zelvek::CharacterAt(text, 2)) << "inside a character";
}

// Behaviour: No text from outside controls the terminal ...
TEST(PrintableText, HasNoControlCharacters) {
    EXPECT_EQ(Printable(std::string("a\0b\n\x1b[31mc\x7f", 11)), "a?b??[31mc?");
    EXPECT_EQ(Printable("bücher.example"), "bücher.example");
    EXPECT_EQ(Printable("\u202eelpmaxe\x9b"), "?elpmaxe?");
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
    EXPECT_EQ(LastLines("1\n2\n3\n", 1), "3");
}

// Behaviour: Of a tool's output at most a thousand bytes are told
TEST(LastLinesOfAnOutput, AreAtMostAThousandBytes) {
    EXPECT_EQ(LastLines(std::string(5'000'000, 'x')), std::string(1000, 'x'));
}

}  // namespace
