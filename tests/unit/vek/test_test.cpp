#include "vek/test.h"

#include <gtest/gtest.h>

namespace {

// Behaviours of: Texts, dates, names, XML

// Behaviour: A URL is a scheme, "://" and a rest that is not empty
TEST(TestUrl, TakesASchemeAndARest) {
    EXPECT_TRUE(test::Url("https://example.org/acct/1"));
    EXPECT_TRUE(test::Url("HTTP://x"));
    EXPECT_TRUE(test::Url("a+b-c.9://x"));
    EXPECT_TRUE(test::Url("x:///path"));
}

// Behaviour: A URL is a scheme, "://" and a rest that ...
TEST(TestUrl, KnowsEveryCharacterOfASchemeAndNoOther) {
    for (const char* scheme : {"a", "z", "A", "Z", "xa", "xz", "xA", "xZ", "x0", "x9", "x+", "x-", "x."})
        EXPECT_TRUE(test::Url(scheme + std::string("://y"))) << scheme;
    for (const char* scheme : {"@", "[", "`", "{", "0", "+", "x@", "x[", "x`", "x{", "x/", "x:", "x,", "x~"})
        EXPECT_FALSE(test::Url(scheme + std::string("://y"))) << scheme;
}

// Behaviour: A URL is a scheme, "://" and a rest that ...
TEST(TestUrl, NeedsARest) { EXPECT_FALSE(test::Url("https://")); }

// Behaviour: A URL is a scheme, "://" and a rest that ...
TEST(TestUrl, NeedsASchemeThatBeginsWithALetter) {
    EXPECT_FALSE(test::Url("://example.org"));
    EXPECT_FALSE(test::Url("9p://example.org"));
    EXPECT_FALSE(test::Url("ht tp://example.org"));
    EXPECT_FALSE(test::Url(" https://example.org"));
}

// Behaviour: A URL is a scheme, "://" and a rest that ...
TEST(TestUrl, NeedsTheSlashes) {
    EXPECT_FALSE(test::Url(""));
    EXPECT_FALSE(test::Url("https"));
    EXPECT_FALSE(test::Url("https:"));
    EXPECT_FALSE(test::Url("https:/example.org"));
    EXPECT_FALSE(test::Url("mailto:someone@example.org"));
    EXPECT_FALSE(test::Url("/acct/1"));
}

}  // namespace
