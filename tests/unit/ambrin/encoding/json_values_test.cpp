#include "encoding/json_values.h"

#include <gtest/gtest.h>

namespace {

Json::Value Parsed(const std::string& text) { return ParseAny(text); }

// Behaviours of: Responses

// Behaviour: A member of what is no object reads as missing
TEST(JsonValues, MemberOfAnythingButAnObjectIsNull) {
    for (const char* text : {"null", "[1]", "\"text\"", "7", "7.5", "true", ""})
        EXPECT_TRUE(MemberOf(Parsed(text), "status").isNull()) << text;
    EXPECT_EQ(MemberOf(Parsed(R"({"status":"valid"})"), "status"), Json::Value("valid"));
}

// Behaviour: Reading a value never inserts a member into ...
TEST(JsonValues, ReadingInsertsNoMembers) {
    Json::Value value = Parsed(R"({"a":1})");
    EXPECT_TRUE(MemberOf(value, "b").isNull());
    EXPECT_FALSE(HasMember(value, "b"));
    EXPECT_EQ(WriteCompact(value), "{\"a\":1}\n");
}

// Behaviour: A member of what is no object reads as missing ...
TEST(JsonValues, OnlyObjectsHaveMembers) {
    EXPECT_TRUE(HasMember(Parsed(R"({"error":null})"), "error"));
    EXPECT_FALSE(HasMember(Parsed(R"(["error"])"), "error"));
    EXPECT_FALSE(HasMember(Parsed(R"("error")"), "error"));
}

// Behaviour: Members of other types are no errors: a number ...
TEST(JsonValues, TextOfEveryKindOfValue) {
    EXPECT_EQ(TextOf(Json::Value("text")), "text");
    EXPECT_EQ(TextOf(Json::Value(7)), "7");
    EXPECT_EQ(TextOf(Json::Value(true)), "true");
    EXPECT_EQ(TextOf(Json::Value()), "");
    EXPECT_EQ(TextOf(Parsed(R"(["text"])")), "");
    EXPECT_EQ(TextOf(Parsed(R"({"a":"text"})")), "");
}

// Behaviour: JSON that is broken or nested too deep is ...
TEST(JsonValues, DeepNestingIsNullAndNoError) {
    EXPECT_TRUE(ParseAny(std::string(100000, '[')).isNull());
    EXPECT_TRUE(ParseAny(std::string(100000, '[') + std::string(100000, ']')).isNull());
}

// Behaviour: JSON that is broken or nested too deep is null or partial, never an exception
TEST(JsonValues, BrokenTextsAreNoErrors) {
    for (const std::string text :
         {"", "not json", "{", "{\"a\"", "\"\xFF\xFE\"", "{\"a\":\"\\ud800\"}", "[1,", "\\"})
        EXPECT_NO_THROW(ParseAny(text)) << text;
    EXPECT_NO_THROW(ParseAny(std::string("\0{}", 3)));
    EXPECT_NO_THROW(ParseAny("{\"a\":1e999999,\"b\":123456789012345678901234567890}"));
}

// Behaviour: A text that has to be JSON as a whole is null when it is broken, breaks off or is nested too
//   deep
TEST(JsonValues, WholeTextIsItsValueOrNull) {
    EXPECT_EQ(ParseWhole(R"({"a":[1]})"), Parsed(R"({"a":[1]})"));
    EXPECT_EQ(ParseWhole("// a note\n{}").getComment(Json::commentBefore), "// a note");
    for (const std::string text : {"", "not json", "{", R"({"a":1)", R"({"a":1,"b)", "[1,", "[1,x]"})
        EXPECT_TRUE(ParseWhole(text).isNull()) << text;
    EXPECT_TRUE(ParseWhole(std::string(100000, '[')).isNull());
}

// Behaviour: Comments in JSON are kept
TEST(JsonValues, CommentsAreKept) {
    EXPECT_EQ(ParseAny("// a note\n{}").getComment(Json::commentBefore), "// a note");
}

// Behaviour: JSON is encoded compact, members in byte ...
TEST(JsonValues, CompactTextIsSortedAndEndsWithOneLineFeed) {
    EXPECT_EQ(WriteCompact(Parsed(R"({ "b" : [1, 2], "B" : null, "a" : {} })")),
              "{\"B\":null,\"a\":{},\"b\":[1,2]}\n");
    EXPECT_EQ(WriteCompact(Json::Value(Json::arrayValue)), "[]\n");
}

}  // namespace
