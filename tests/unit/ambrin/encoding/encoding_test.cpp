#include "encoding/encoding.h"

#include "support/job_test.h"
#include "vek/err.h"
#include "vek/str.h"

namespace {

using ambrin_test::DecodeBase64Url;
using ambrin_test::JobTest;
using ambrin_test::kDigestCommand;
using testing::ElementsAre;

// Behaviours of: Encoding

// Behaviour: base64url is standard base64 with "-" and "_" and without padding
// Behaviour: An empty text encodes to an empty text, FB FF to "-_8", 01 00 01 to "AQAB"
TEST(Base64Url, KnownTexts) {
    EXPECT_EQ(Base64UrlEncode(""), "");
    EXPECT_EQ(Base64UrlEncode("\xFB\xFF"), "-_8");
    EXPECT_EQ(Base64UrlEncode(std::string("\x01\x00\x01", 3)), "AQAB");
    EXPECT_EQ(Base64UrlEncode("f"), "Zg");
    EXPECT_EQ(Base64UrlEncode("fo"), "Zm8");
    EXPECT_EQ(Base64UrlEncode("foo"), "Zm9v");
}

// Behaviour: base64url is standard base64 with "-" and ...
TEST(Base64Url, NoResultHoldsPlusSlashOrPadding) {
    std::string bytes;
    for (int i = 0; i < 1000; ++i) {
        bytes += static_cast<char>(i * 7 + i / 256);
        const std::string text = Base64UrlEncode(bytes);
        ASSERT_EQ(text.find_first_of("+/="), std::string::npos) << text;
        ASSERT_EQ(DecodeBase64Url(text), bytes);
    }
}

// Behaviour: JSON is encoded compact, members in byte order, with its final line feed
TEST(EncodedJson, IsTheCompactTextWithItsLineFeed) {
    Json::Value value;
    value["b"] = 1;
    value["a"] = "x";
    EXPECT_EQ(GetEncodedJson(value), "eyJhIjoieCIsImIiOjF9Cg");
    EXPECT_EQ(DecodeBase64Url(GetEncodedJson(value)), "{\"a\":\"x\",\"b\":1}\n");
}

// Behaviour: Null and the empty object are encoded differently
TEST(EncodedJson, NullAndTheEmptyObjectDiffer) {
    EXPECT_EQ(GetEncodedJson(Json::Value()), "bnVsbAo");
    EXPECT_EQ(GetEncodedJson(Json::Value(Json::objectValue)), "e30K");
}

// Behaviour: Hexadecimal digits of either case are encoded as their bytes
TEST(EncodedHexString, IsTheEncodingOfTheBytes) {
    EXPECT_EQ(GetEncodedHexString(""), "");
    EXPECT_EQ(GetEncodedHexString("010001"), "AQAB");
    EXPECT_EQ(GetEncodedHexString("FBff"), "-_8");
}

class Digest : public JobTest {};

// Behaviour: A digest is one run of "openssl dgst -sha256 -binary", fed with the data and closed
// Behaviour: Every tool is fed, read and unable to ask ...
TEST_F(Digest, IsMadeByOneRunOfOpenssl) {
    // The SHA-256 digest of nothing, as the tool gives it.
    const std::string digest =
        str::hex::Decode("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    world.AnswerChild(kDigestCommand, {digest, 0});
    EXPECT_EQ(GetUrlEncodedSha256(""), "47DEQpj8HBSa-_TImW-5JCeuQeRkm5NMpJWZG3hSuFU");
    EXPECT_THAT(world.Lines(), ElementsAre("child: " + kDigestCommand, "input: "));
    EXPECT_EQ(world.calls().front().detail, "134");
}

// Behaviour: All of the data reaches the digest, NUL bytes and large data too; the result has 43 characters
TEST_F(Digest, AllOfTheDataReachesTheTool) {
    AnswerDigests();
    const std::string data = std::string("a\0b\n", 4) + std::string(100000, 'x');
    EXPECT_EQ(GetUrlEncodedSha256(data), ambrin_test::FakeDigestText(data));
    EXPECT_EQ(GetUrlEncodedSha256(data).size(), 43U);
    EXPECT_EQ(world.calls().at(1).text, data);
}

// Behaviour: A digest tool that fails is an error "sha_error" with the tool's output
TEST_F(Digest, ToolThatFailsIsAnErrorWithItsOutput) {
    world.AnswerChild(kDigestCommand, {"unknown option", 1});
    try {
        GetUrlEncodedSha256("data");
        FAIL() << "no error";
    } catch (const vek_err::Error& error) {
        EXPECT_EQ(error.type(), "sha_error");
        EXPECT_STREQ(error.what(), "ambrin: sha_error: unknown option");
    }
}

}  // namespace
