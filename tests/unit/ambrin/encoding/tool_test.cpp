#include "encoding/tool.h"

#include "support/job_test.h"
#include "vek/err.h"

namespace {

using ambrin_test::JobTest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class Tool : public JobTest {};

// Behaviours of: Encoding

// Behaviour: Every tool is fed, read and unable to ask at a terminal (mode 0x86)
TEST_F(Tool, EveryToolIsFedAndReadAndHasASessionOfItsOwn) { EXPECT_EQ(kToolMode, 0x86); }

// Behaviour: A tool gets its input and gives its output back
TEST_F(Tool, InputGoesInAndOutputComesBack) {
    world.AnswerChild("filter --now", {"out\n", 0});
    EXPECT_EQ(RunFilter("filter --now", "in", "code"), "out\n");
    EXPECT_THAT(world.Lines(), ElementsAre("child: filter --now", "input: in"));
}

// Behaviour: A tool that is not there is an error with an empty output
TEST_F(Tool, MissingToolIsAnErrorWithEmptyOutput) {
    world.AnswerChild("nowhere", {"", 127});
    try {
        RunFilter("nowhere", "in", "code");
        FAIL() << "no error";
    } catch (const vek_err::Error& error) {
        EXPECT_EQ(error.type(), "code");
        EXPECT_STREQ(error.what(), "ambrin: code: ");
    }
}

// Behaviour: An error's text ends before the secret numbers of a key dump
TEST_F(Tool, SecretNumbersOfAKeyDumpStayOutOfTheError) {
    world.AnswerChild("*", {"modulus:\n 00:aa\nprivateExponent:\n 12:34:56", 1});
    try {
        RunFilter("openssl rsa -text -noout", "PEM", "ssl_generate");
        FAIL() << "no error";
    } catch (const vek_err::Error& error) {
        EXPECT_THAT(error.what(), HasSubstr("00:aa"));
        EXPECT_THAT(error.what(), Not(HasSubstr("12:34:56")));
    }
}

}  // namespace
