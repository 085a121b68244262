#include "zelvek/certificates/pem.h"

#include <gmock/gmock.h>

namespace {

using zelvek::ReadPem;

const std::string kOne = "-----BEGIN A-----\nYWJj\n-----END A-----";
const std::string kTwo = "-----BEGIN B B-----\nYWI=\n-----END B B-----";

void ExpectBoth(const std::string& text) {
    const auto blocks = ReadPem(text);
    ASSERT_TRUE(blocks) << text;
    ASSERT_EQ(blocks->size(), 2u) << text;
    EXPECT_EQ((*blocks)[0].label, "A");
    EXPECT_EQ((*blocks)[0].der, "abc");
    EXPECT_EQ((*blocks)[1].label, "B B");
    EXPECT_EQ((*blocks)[1].der, "ab");
}

std::string WithCarriageReturns(const std::string& text) {
    std::string result;
    for (const char c : text) result += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return result;
}

// Behaviours of: Requests and installations (sslcert.csr.edit, sslcert.csr.delete, sslcert.hardreplace)

// Behaviour: PEM texts are blocks and white space; anything beside them, and broken ones, are refused
TEST(Pem, BlocksAreFoundWhateverWhiteSpaceStandsBetween) {
    ExpectBoth(kOne + "\n" + kTwo + "\n");
    ExpectBoth(kOne + kTwo);
    ExpectBoth("\n\n \t" + kOne + "\n\n\n" + kTwo + "\n\n");
    ExpectBoth(WithCarriageReturns(kOne + "\n\n" + kTwo + "\n"));
    ExpectBoth("-----BEGIN A-----\n\nYW\n\nJj\n\n-----END A-----\n" + kTwo);
    ExpectBoth("-----BEGIN A-----YWJj-----END A-----" + kTwo);
}

// Behaviour: PEM texts are blocks and white space; anything ...
TEST(Pem, NothingHasNoBlocks) {
    ASSERT_TRUE(ReadPem(""));
    EXPECT_TRUE(ReadPem(" \r\n ")->empty());
}

// Behaviour: PEM texts are blocks and white space; anything ...
TEST(Pem, AnythingBesideBlocksIsRefused) {
    EXPECT_FALSE(ReadPem("subject=/CN=x\n" + kOne));
    EXPECT_FALSE(ReadPem(kOne + "\nissuer=/CN=y\n" + kTwo));
    EXPECT_FALSE(ReadPem(kOne + "-"));
    EXPECT_FALSE(ReadPem(std::string("\0", 1) + kOne));
}

// Behaviour: PEM texts are blocks and white space; anything ...
TEST(Pem, BrokenBlocksAreRefused) {
    for (const char* text :
         {"-----BEGIN A-----", "-----BEGIN A-----\n", "-----BEGIN A",
          "-----BEGIN A-----\nYWJj\n-----END B-----", "-----BEGIN A-----\nYWJj\n",
          "-----BEGIN A-----\n-----END A-----", "-----BEGIN A-----\nYWJ\n-----END A-----",
          "-----BEGIN A-----\nY*Jj\n-----END A-----", "-----BEGIN A-----\n====\n-----END A-----",
          "-----BEGIN A-----\nYWI=YWJj\n-----END A-----", "-----BEGIN A-----\nYWJj----\n-----END A-----",
          "-----BEGIN A-----\nYWJj\n-----BEGIN A-----\nYWJj\n-----END A-----",
          "-----BEGIN A-----\nProc-Type: 4,ENCRYPTED\n\nYWJj\n-----END A-----"}) {
        EXPECT_FALSE(ReadPem(text)) << text;
    }
}

}  // namespace
