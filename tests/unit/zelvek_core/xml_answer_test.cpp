#include "zelvek/panel/xml_answer.h"

#include <gtest/gtest.h>

#include "vek/client.h"
#include "vek/err.h"

namespace zelvek {
namespace {

// Behaviours of: Socket and answers

// Behaviour: Values travel unchanged both ways, as do errors
TEST(XmlAnswer, ValuesComeOutAsTheyWentIn) {
    for (const std::string text :
         {"", " ", "\n", "\r", "\r\n", "\t x ", "<&>\"'", "]]>", "a\rb\nc\r\nd", "bücher", "&amp;", "\x7f"}) {
        XmlAnswer answer;
        answer.Doc().Value("before", "x").Value("key", text).Value("after", "y");
        const vek_client::Result result(answer.Text());
        EXPECT_EQ(result.value("key"), text);
        EXPECT_EQ(result.value("before") + result.value("after"), "xy");
    }
}

// Behaviour: An answer can hold a list of elements, each with its values and flags
TEST(XmlAnswer, HoldsLists) {
    XmlAnswer answer;
    answer.Elem().Value("id", 1).Flag("on", true);
    answer.Elem().Value("id", 2).Flag("on", false);
    const vek_client::Result result(answer.Text());
    const auto nodes = result.xml().GetNodes("/doc/elem");
    ASSERT_EQ(nodes.size(), 2U);
    EXPECT_EQ(nodes[0].Value("id") + nodes[0].Value("on"), "1on");
    EXPECT_EQ(nodes[1].Value("id") + nodes[1].Value("on"), "2off");
}

// Behaviour: An answer with nothing in it is a document too
TEST(XmlAnswer, IsADocumentWhenItIsEmpty) { EXPECT_NO_THROW(vek_client::Result(XmlAnswer().Text())); }

// Behaviour: Values travel unchanged both ways, as do ...
TEST(ErrorAnswer, IsRaisedWithItsTypeAndText) {
    try {
        const vek_client::Result result(
            ErrorAnswer({Code::kExists, "domain", "a\"<\n", "it is <there> & \"so\"\r\n"}));
        FAIL() << "no error";
    } catch (const vek_err::Error& error) {
        EXPECT_EQ(error.type(), "exists");
        EXPECT_STREQ(error.what(), "it is <there> & \"so\"\r\n");
    }
}

// Behaviour: Values travel unchanged both ways, as do ...
TEST(ErrorAnswer, CarriesWhatCannotBeCarriedInAnotherForm) {
    try {
        const vek_client::Result result(ErrorAnswer({Code::kValue, "", std::string("a\0b", 3), "\x01\xff"}));
        FAIL() << "no error";
    } catch (const vek_err::Error& error) {
        EXPECT_EQ(error.type(), "value");
        EXPECT_STREQ(error.what(), "\xef\xbf\xbd\xef\xbf\xbd");
    }
}

}  // namespace
}  // namespace zelvek
