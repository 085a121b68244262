#include "encoding/account_key.h"
#include "support/job_test.h"

// Which words of a key's dump count when they stand more than once.
namespace {

using ambrin_test::JobTest;
using ambrin_test::kKeyDumpCommand;

class KeyDump : public JobTest {
protected:
    std::string HeaderOf(const std::string& dump) {
        world.AnswerChild(kKeyDumpCommand, {dump, 0});
        return GetModulusHeader("PEM");
    }

    static std::string Header(const std::string& n, const std::string& e) {
        return R"({"alg":"RS256","jwk":{"e":")" + e + R"(","kty":"RSA","n":")" + n + "\"}}\n";
    }
};

// Behaviours of: Account key

// Behaviour: The first "modulus" and the last "publicExponent" frame the number; blanks, colons and line
//   feeds between are dropped
TEST_F(KeyDump, FirstModulusAndLastExponentAreTheOnesThatCount) {
    // The text between them holds the second "modulus", whose "m" ends the digits.
    EXPECT_EQ(HeaderOf("modulus:\n 0a:0b\nmodulus:\n 0c\npublicExponent: 3 (0x3)\n"), Header("Cgs", "Aw"));
    EXPECT_EQ(HeaderOf("publicExponent\nmodulus:\n 0a:0b\npublicExponent: 3 (0x3)\n"), Header("Cgs", "Aw"));
}

// Behaviour: The first "modulus" and the last "publicExponent" ...
TEST_F(KeyDump, ExponentAheadOfTheModulusGivesNoModulus) {
    EXPECT_EQ(HeaderOf("publicExponent: 3 (0x3)\nmodulus:\n 0a:0b\n"), Header("", "Aw"));
    EXPECT_EQ(HeaderOf("publicExponent: 3 (0x3)\nmodulus"), Header("", "Aw"));
}

// Behaviour: The exponent stands between the last parentheses ...
TEST_F(KeyDump, LastParenthesesOfTheWholeTextAreTheExponents) {
    EXPECT_EQ(HeaderOf("Key: (2048 bit)\nmodulus:\n 0a\npublicExponent: 65537 (0x10001)\n"),
              Header("Cg", "AQAB"));
    EXPECT_EQ(HeaderOf("Key: (0x1)\nmodulus:\n 0a\npublicExponent: 65537\n"), Header("Cg", "AQ"))
        << "wherever they stand";
}

// Behaviour: A dump without both parentheses gives an ...
TEST_F(KeyDump, OneParenthesisAloneGivesNoExponent) {
    EXPECT_EQ(HeaderOf("modulus:\n 0a\npublicExponent: 3 (0x3\n"), Header("Cg", ""));
    EXPECT_EQ(HeaderOf("0c modulus:\n 0a\npublicExponent: 3 0x3)\n"), Header("Cg", ""));
}

// Behaviour: The exponent stands between the last parentheses ...
TEST_F(KeyDump, EveryXOfTheExponentIsDeleted) {
    EXPECT_EQ(HeaderOf("modulus:\n 0a\npublicExponent: (x01x00x01)\n"), Header("Cg", "AQAB"));
}

// Behaviour: The first "modulus" and the last "publicExponent" ...
TEST_F(KeyDump, BlanksColonsAndLineFeedsAreNoDigits) {
    EXPECT_EQ(HeaderOf("modulus :\n\n  0 a: :0b\n:publicExponent: 3 (0x3)\n"), Header("Cgs", "Aw"));
}

// Behaviour: The dump's leading zero byte is left out ...
TEST_F(KeyDump, ZeroByteOfAModulusOfZeroBytesAloneIsLeftOutOnce) {
    EXPECT_EQ(HeaderOf("modulus: 00 publicExponent: (0x3)"), Header("", "Aw"));
    EXPECT_EQ(HeaderOf("modulus: 00:00 publicExponent: (0x3)"), Header("AA", "Aw"));
}

}  // namespace
