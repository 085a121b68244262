#include "encoding/account_key.h"

#include "support/job_test.h"
#include "vek/err.h"

namespace {

using ambrin_test::JobTest;
using ambrin_test::kDigestCommand;
using ambrin_test::kKeyDumpCommand;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class AccountKey : public JobTest {
protected:
    std::string HeaderOfDump(const std::string& dump) {
        world.AnswerChild(kKeyDumpCommand, {dump, 0});
        return GetModulusHeader("PEM");
    }
};

std::string Header(const std::string& n, const std::string& e) {
    return R"({"alg":"RS256","jwk":{"e":")" + e + R"(","kty":"RSA","n":")" + n + "\"}}\n";
}

/// The dump of a modulus of `bytes` times the byte `hex`, laid out as the tool does: fifteen bytes a line.
std::string Dump(const std::string& first, const std::string& hex, int bytes) {
    std::string dump = "Private-Key: (4096 bit, 2 primes)\nmodulus:\n    " + first;
    for (int i = 0; i < bytes; ++i) dump += hex + (i + 1 == bytes ? "\n" : i % 15 == 13 ? ":\n    " : ":");
    return dump + "publicExponent: 65537 (0x10001)\nprivateExponent:\n    5e:c2\nprime1:\n    00:01\n";
}

// Behaviours of: Account key

// Behaviour: A new account key is a fresh RSA key of 4096 bits as PEM text; nothing is logged
TEST_F(AccountKey, NewKeyHas4096BitsAndIsPemText) {
    EXPECT_EQ(GenerateAcmeKey(), vek_double::FakePem("1", 4096));
    EXPECT_THAT(world.Lines(), ElementsAre("generate key: 4096")) << "and nothing is logged";
    EXPECT_NE(GenerateAcmeKey(), vek_double::FakePem("1", 4096));
}

// Behaviour: The key header is read from one run of "openssl rsa -text -noout"
// Behaviour: The key header is {"alg":"RS256","jwk":{"e","kty","n"}} in this order with a final line feed
TEST_F(AccountKey, HeaderIsReadFromOneDumpOfTheKey) {
    EXPECT_EQ(HeaderOfDump(Dump("", "c1", 3)), Header("wcHB", "AQAB"));
    EXPECT_THAT(world.Lines(), ElementsAre("child: " + kKeyDumpCommand, "input: PEM"));
    EXPECT_EQ(world.calls().front().detail, "134");
}

// Behaviour: The dump's leading zero byte is left out, once
// Behaviour: A 4096-bit key has an "n" of 683 characters and an "e" of "AQAB"
TEST_F(AccountKey, LeadingZeroByteOfTheDumpIsLeftOut) {
    const std::string header = HeaderOfDump(Dump("00:", "c1", 512));
    EXPECT_EQ(header.size(), Header("", "AQAB").size() + 683);
    EXPECT_THAT(header, HasSubstr("\"n\":\"wcHBwcHB"));
}

// Behaviour: The dump's leading zero byte is left out ...
TEST_F(AccountKey, OnlyOneLeadingZeroByteIsLeftOut) {
    EXPECT_EQ(HeaderOfDump(Dump("00:00:", "c1", 2)), Header("AMHB", "AQAB"));
}

// Behaviour: A modulus without a leading zero byte is used whole
TEST_F(AccountKey, ModulusWithoutLeadingZeroByteIsUsedWhole) {
    EXPECT_EQ(HeaderOfDump(Dump("7f:", "00", 2)), Header("fwAA", "AQAB"));
}

// Behaviour: The exponent stands between the last parentheses of the whole dump, every "x" dropped
TEST_F(AccountKey, OtherExponentsAreReadFromTheLastParentheses) {
    EXPECT_EQ(HeaderOfDump("modulus:\n 0a:0b\npublicExponent: 3 (0x3)\n"), Header("Cgs", "Aw"));
    EXPECT_EQ(HeaderOfDump("modulus:\n 0a:0b\npublicExponent: (no) 257 (0x101)\n"), Header("Cgs", "AQE"));
}

// Behaviour: A dump without one of the words gives empty "n" and "e" and no error
TEST_F(AccountKey, DumpWithoutItsWordsGivesAnEmptyHeaderAndNoError) {
    EXPECT_EQ(HeaderOfDump(""), Header("", ""));
    EXPECT_EQ(HeaderOfDump("modulus:\n 0a:0b\n (0x10001)"), Header("", ""));
    EXPECT_EQ(HeaderOfDump("publicExponent: 65537 (0x10001)"), Header("", ""));
}

// Behaviour: A dump without both parentheses gives an empty "e"
TEST_F(AccountKey, DumpWithoutParenthesesLeavesTheExponentEmpty) {
    EXPECT_EQ(HeaderOfDump("modulus:\n 0a:0b\npublicExponent: 65537\n"), Header("Cgs", ""));
    EXPECT_EQ(HeaderOfDump("modulus:\n 0a:0b\npublicExponent: 65537 (\n"), Header("Cgs", ""));
}

// Behaviour: A dump whose parts stand in the wrong order is no error
TEST_F(AccountKey, DumpWithItsPartsInTheWrongOrderIsNoError) {
    EXPECT_EQ(HeaderOfDump("publicExponent modulus"), Header("", ""));
    EXPECT_EQ(HeaderOfDump("modulus:\n 0a:0b\npublicExponent: 65537 )(\n"), Header("Cgs", ""));
}

// Behaviour: A key that the tool refuses is an error "ssl_generate" with the tool's output
TEST_F(AccountKey, KeyThatTheToolRefusesIsAnErrorWithItsOutput) {
    world.AnswerChild(kKeyDumpCommand, {"Could not read private key", 1});
    try {
        GetModulusHeader("no key");
        FAIL() << "no error";
    } catch (const vek_err::Error& error) {
        EXPECT_EQ(error.type(), "ssl_generate");
        EXPECT_STREQ(error.what(), "ambrin: ssl_generate: Could not read private key");
    }
}

// Behaviour: An error's text ends before the secret numbers ...
TEST_F(AccountKey, DumpThatBreaksOffShowsNoSecretNumbers) {
    world.AnswerChild(kKeyDumpCommand, {Dump("00:", "c1", 4), 1});
    try {
        GetModulusHeader("PEM");
        FAIL() << "no error";
    } catch (const vek_err::Error& error) {
        EXPECT_THAT(error.what(), Not(HasSubstr("5e:c2")));
    }
}

// Behaviour: A thumbprint is the digest of the compact key text; line feeds do not count
TEST_F(AccountKey, ThumbprintIgnoresLineFeeds) {
    AnswerDigests();
    const std::string jwk = R"({"e":"AQAB","kty":"RSA","n":"wcHB"})";
    EXPECT_EQ(GetThumbprint(jwk), ambrin_test::FakeDigestText(jwk));
    EXPECT_EQ(GetThumbprint(jwk + "\n"), ambrin_test::FakeDigestText(jwk));
    EXPECT_THAT(world.Lines({"input"}), ElementsAre("input: " + jwk, "input: " + jwk));
}

// Behaviour: A thumbprint passes the digest's failure on
TEST_F(AccountKey, ThumbprintPassesTheToolsFailureOn) {
    world.AnswerChild(kDigestCommand, {"", 1});
    EXPECT_THROW(GetThumbprint("{}"), vek_err::Error);
}

// Behaviour: A key authorization is token, ".", thumbprint
TEST_F(AccountKey, KeyAuthorizationIsTokenDotThumbprint) {
    EXPECT_EQ(GetKeyAuthz("abc", "xyz"), "abc.xyz");
    EXPECT_TRUE(world.calls().empty());
}

}  // namespace
