#include <gtest/gtest.h>

#include "vek/str.h"

namespace {

std::string AllBytes() {
    std::string bytes;
    for (int value = 0; value < 256; ++value) bytes += static_cast<char>(value);
    return bytes;
}

// Behaviours of: Texts, dates, names, XML

// Behaviour: base64 and hexadecimal are those of the published vectors, without line breaks, in lower case
// RFC 4648 section 10.
TEST(Base64, EncodesTheVectorsOfItsRfc) {
    EXPECT_EQ(str::base64::Encode(""), "");
    EXPECT_EQ(str::base64::Encode("f"), "Zg==");
    EXPECT_EQ(str::base64::Encode("fo"), "Zm8=");
    EXPECT_EQ(str::base64::Encode("foo"), "Zm9v");
    EXPECT_EQ(str::base64::Encode("foob"), "Zm9vYg==");
    EXPECT_EQ(str::base64::Encode("fooba"), "Zm9vYmE=");
    EXPECT_EQ(str::base64::Encode("foobar"), "Zm9vYmFy");
}

// Behaviour: base64 and hexadecimal are those of the published ...
TEST(Base64, UsesTheStandardAlphabet) {
    EXPECT_EQ(str::base64::Encode("\xfb\xef\xbe"), "++++");
    EXPECT_EQ(str::base64::Encode("\xff\xff\xff"), "////");
}

// Behaviour: base64 and hexadecimal are those of the published ...
TEST(Base64, BreaksNoLines) {
    EXPECT_EQ(str::base64::Encode(std::string(300, 'x')).find_first_of("\r\n"), std::string::npos);
}

// Behaviour: NUL bytes are encoded like any others
TEST(Base64, EncodesNulBytes) { EXPECT_EQ(str::base64::Encode(std::string(4, '\0')), "AAAAAA=="); }

// Behaviour: base64 and hexadecimal are those of the published ...
// RFC 4648 section 10, in lower case.
TEST(Hex, EncodesTheVectorsOfItsRfc) {
    EXPECT_EQ(str::hex::Encode(""), "");
    EXPECT_EQ(str::hex::Encode("f"), "66");
    EXPECT_EQ(str::hex::Encode("foobar"), "666f6f626172");
}

// Behaviour: Every byte survives its way through hexadecimal digits
TEST(Hex, DecodesWhatItEncodes) { EXPECT_EQ(str::hex::Decode(str::hex::Encode(AllBytes())), AllBytes()); }

// Behaviour: Hexadecimal of an odd count has its last ...
TEST(Hex, DecodesBothCases) { EXPECT_EQ(str::hex::Decode("4a4B4c"), "JKL"); }

// Behaviour: Hexadecimal of an odd count has its last digit as a byte; reading stops at what is no digit
TEST(Hex, TakesTheLastOfAnOddCountForAByte) {
    EXPECT_EQ(str::hex::Decode("4a4"), "J\x04");
    EXPECT_EQ(str::hex::Decode("0"), std::string(1, '\0'));
}

// Behaviour: Hexadecimal of an odd count has its last ...
TEST(Hex, KnowsEveryDigitAndNothingBesideThem) {
    EXPECT_EQ(str::hex::Decode("00112233445566778899aAbBcCdDeEfF"),
              std::string("\x00\x11\x22\x33\x44\x55\x66\x77\x88\x99\xaa\xbb\xcc\xdd\xee\xff", 16));
    for (const char c : {'/', ':', '@', 'G', '`', 'g', '\0'})
        EXPECT_EQ(str::hex::Decode(std::string("4a") + c + "4b"), "J");
}

// Behaviour: Hexadecimal of an odd count has its last ...
TEST(Hex, StopsAtWhatIsNoDigit) {
    EXPECT_EQ(str::hex::Decode("4a:4b"), "J");
    EXPECT_EQ(str::hex::Decode("4a4g"), "J\x04");
    EXPECT_EQ(str::hex::Decode(" 4a"), "");
    EXPECT_EQ(str::hex::Decode(""), "");
}

}  // namespace
