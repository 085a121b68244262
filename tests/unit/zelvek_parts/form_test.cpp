#include "zelvek/base/form.h"

#include <gmock/gmock.h>

#include <chrono>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using zelvek::FormDecode;
using zelvek::Parameters;

// Behaviours of: Socket and answers

// Behaviour: A form's escapes are read in either letter case, and "+" as a blank
TEST(FormDecode, ReadsBothCasesOfDigitsAndTheBlank) {
    EXPECT_EQ(FormDecode("a%2Fb%2fc+d%20e"), "a/b/c d e");
    EXPECT_EQ(FormDecode("%C3%A9%0D%0A"), "\xc3\xa9\r\n");
}

// Behaviour: An escape can give any byte, NUL as well
TEST(FormDecode, GivesEveryByteThatIsAskedFor) {
    const std::string decoded = FormDecode("a%00b%FF");
    EXPECT_EQ(decoded, std::string("a\0b\xff", 4));
}

// Behaviour: A percent sign without two hexadecimal digits after it stands for itself
TEST(FormDecode, LeavesPercentSignsWithoutTwoDigits) {
    EXPECT_EQ(FormDecode("%"), "%");
    EXPECT_EQ(FormDecode("%4"), "%4");
    EXPECT_EQ(FormDecode("100%"), "100%");
    EXPECT_EQ(FormDecode("%zz%4x%x4"), "%zz%4x%x4");
    EXPECT_EQ(FormDecode("%%41"), "%A");
}

// Behaviour: The first value of a parameter counts; what ...
TEST(FormDecode, DoesNotDecodeTwice) { EXPECT_EQ(FormDecode("%2541"), "%41"); }

// Behaviour: A form's parameters keep the order in which they were written, with and without values
TEST(Parameters, KeepTheOrderWritten) {
    const Parameters parameters("func=domain&su=alice&empty=&bare");
    EXPECT_THAT(parameters.All(), ElementsAre(Pair("func", "domain"), Pair("su", "alice"), Pair("empty", ""),
                                              Pair("bare", "")));
}

// Behaviour: The first value of a parameter counts; what is decoded stays inside its value and is decoded
//   once
TEST(Parameters, FirstValueOfAKeyCounts) {
    const Parameters parameters("sok=ok&%73ok=no&sok=");
    EXPECT_EQ(parameters.Get("sok"), "ok");
    EXPECT_THAT(parameters.All(), ElementsAre(Pair("sok", "ok")));
}

// Behaviour: The first value of a parameter counts; what ...
TEST(Parameters, DecodedSeparatorsStayInTheValue) {
    const Parameters parameters("content=a%26func%3Dother=b");
    EXPECT_EQ(parameters.Get("content"), "a&func=other=b");
    EXPECT_FALSE(parameters.Has("func"));
}

// Behaviour: A parameter that is missing reads as empty, and is told apart from an empty one
TEST(Parameters, MissingKeysReadAsEmpty) {
    const Parameters parameters("su=");
    EXPECT_TRUE(parameters.Has("su"));
    EXPECT_FALSE(parameters.Has("sok"));
    EXPECT_EQ(parameters.Get("sok"), "");
}

// Behaviour: Nothing between two "&" is no parameter
TEST(Parameters, EmptyPairsAreNone) {
    EXPECT_THAT(Parameters("").All(), IsEmpty());
    EXPECT_THAT(Parameters("&&&").All(), IsEmpty());
    EXPECT_THAT(Parameters("a=1&&b=2&").All(), ElementsAre(Pair("a", "1"), Pair("b", "2")));
}

// Behaviour: Hundreds of thousands of parameters are read and found in far less than quadratic time
// Quadratic work would take minutes here; the limit leaves room for a loaded machine and for sanitizers.
TEST(Parameters, HundredsOfThousandsAreReadAndFoundInTime) {
    constexpr int kCount = 300'000;
    std::string form;
    for (int i = 0; i < kCount; ++i) form += "key" + std::to_string(i) + "=" + std::to_string(i) + "&";

    const auto start = std::chrono::steady_clock::now();
    const Parameters parameters(form);
    std::size_t found = 0;
    for (int i = 0; i < kCount; ++i) found += parameters.Has("key" + std::to_string(i)) ? 1 : 0;
    EXPECT_EQ(found, std::size_t{kCount});
    EXPECT_EQ(parameters.Get("key299999"), "299999");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

}  // namespace
