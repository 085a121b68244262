#include <gtest/gtest.h>

#include <cstdio>

#include "vek/client.h"
#include "vek/err.h"

namespace {

using vek_client::Bind;
using vek_client::Result;
using Values = std::vector<std::string>;
using Entries = std::map<std::string, std::string>;

struct Failure {
    std::string type;
    std::string text;
};

Failure FailureOf(const std::string& body) {
    try {
        const Result result(body);
        return {"none", ""};
    } catch (const vek_err::Error& e) {
        return {e.type(), e.what()};
    }
}

// Behaviours of: Queries to a local service

// Behaviour: Each "?" of a query text takes the next value, percent-encoded
TEST(Bind, PutsValuesInTheirPlaces) {
    EXPECT_EQ(Bind("func=a&elid=?&name=?&", Values{"7", "x"}), "func=a&elid=7&name=x&");
    EXPECT_EQ(Bind("?", Values{""}), "");
}

// Behaviour: A "?" beyond the values stays; a value beyond the places is dropped; a "?" in a value is a value
TEST(Bind, LeavesPlacesBeyondTheValues) { EXPECT_EQ(Bind("a=?&b=?", Values{"1"}), "a=1&b=?"); }

// Behaviour: A "?" beyond the values stays; a value beyond ...
TEST(Bind, DropsValuesBeyondThePlaces) { EXPECT_EQ(Bind("a=?", Values{"1", "2"}), "a=1"); }

// Behaviour: A "?" beyond the values stays; a value beyond ...
TEST(Bind, TakesAQuestionMarkInAValueForAValue) { EXPECT_EQ(Bind("a=?&b=?", Values{"?", "2"}), "a=%3F&b=2"); }

// Behaviour: No value can become a parameter; every byte but the unreserved characters is encoded
TEST(Bind, LetsNoValueBecomeAParameter) {
    EXPECT_EQ(Bind("a=?", Values{"1&sok=ok#;+ %\"'<>/\\"}),
              "a=1%26sok%3Dok%23%3B%2B%20%25%22%27%3C%3E%2F%5C");
    EXPECT_EQ(Bind("a=?", Values{"a\r\nb\tc"}), "a=a%0D%0Ab%09c");
}

// Behaviour: No value can become a parameter; every byte ...
TEST(Bind, EncodesEveryByte) {
    EXPECT_EQ(Bind("a=?", Values{"ü"}), "a=%C3%BC");
    EXPECT_EQ(Bind("a=?", Values{std::string("a\0b", 3)}), "a=a%00b");
    EXPECT_EQ(Bind("a=?", Values{"\xff"}), "a=%FF");
}

// Behaviour: No value can become a parameter; every byte ...
TEST(Bind, EncodesEachByteThatIsReservedAndNoOther) {
    const std::string unreserved = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~";
    for (int value = 0; value < 256; ++value) {
        const std::string byte(1, static_cast<char>(value));
        char encoded[4];
        std::snprintf(encoded, sizeof(encoded), "%%%02X", static_cast<unsigned>(value));
        EXPECT_EQ(Bind("?", Values{byte}), unreserved.find(byte) != std::string::npos ? byte : encoded)
            << value;
    }
}

// Behaviour: No value can become a parameter; every byte ...
TEST(Bind, LeavesUnreservedCharacters) {
    const std::string unreserved = "AZaz09-._~";
    EXPECT_EQ(Bind("?", Values{unreserved}), unreserved);
}

// Behaviour: The entries of a map are appended in key order, keys and values encoded
TEST(Bind, AppendsEntriesInKeyOrder) {
    EXPECT_EQ(Bind("func=a&sok=ok", Entries{{"b", "2"}, {"a", "1"}, {"c", ""}}), "func=a&sok=ok&a=1&b=2&c=");
    EXPECT_EQ(Bind("func=a", Entries{}), "func=a");
}

// Behaviour: The entries of a map are appended in key ...
TEST(Bind, EncodesKeysAndValuesOfEntries) {
    EXPECT_EQ(Bind("f=?", Entries{{"k&=", "v&sok=ok?"}}), "f=?&k%26%3D=v%26sok%3Dok%3F");
}

// Behaviour: A value of an answer is the text of its element under the document, empty when there is none
TEST(Answer, GivesItsValues) {
    const Result result("<doc><elid>7</elid><certname>example.org</certname><empty/></doc>");
    EXPECT_EQ(result.value("elid"), "7");
    EXPECT_EQ(result.value("certname"), "example.org");
    EXPECT_EQ(result.value("empty"), "");
    EXPECT_EQ(result.value("missing"), "");
    EXPECT_EQ(result.value(""), "");
    EXPECT_EQ(result.value("a/b['"), "");
}

// Behaviour: A value of an answer is the text of its element ...
TEST(Answer, GivesTheValuesOfItsDocumentOnly) {
    EXPECT_EQ(Result("<doc><elem><id>1</id></elem></doc>").value("id"), "");
    EXPECT_EQ(Result("<doc><a>1</a><a>2</a></doc>").value("a"), "1");
}

// Behaviour: Values keep white space, line ends and marked sections
TEST(Answer, KeepsValuesAsTheyWereSent) {
    const Result result("<doc><a> \t</a><b>  x</b><c>1&#13;\n2</c><d><![CDATA[<&>]]></d></doc>");
    EXPECT_EQ(result.value("a"), " \t");
    EXPECT_EQ(result.value("b"), "  x");
    EXPECT_EQ(result.value("c"), "1\r\n2");
    EXPECT_EQ(result.value("d"), "<&>");
}

// Behaviour: Lists are reached by XPath
TEST(Answer, GivesItsListsByXPath) {
    const Result result("<doc><elem><name>a</name></elem><elem><name>b</name></elem></doc>");
    EXPECT_EQ(result.xml().GetNodes("/doc/elem").size(), 2U);
}

// Behaviour: An answer with an error is raised with the error's type and message
TEST(Answer, IsAnErrorThatTheServiceReports) {
    const auto failure =
        FailureOf("<doc><error type=\"exists\" object=\"x\"><msg>It &lt;exists&gt;</msg></error></doc>");
    EXPECT_EQ(failure.type, "exists");
    EXPECT_EQ(failure.text, "It <exists>");
}

// Behaviour: An answer with an error is raised with the ...
TEST(Answer, NamesTheTypeOfAnErrorWithoutAMessage) {
    EXPECT_EQ(FailureOf("<doc><error type=\"dns\"/></doc>").text, "dns");
    EXPECT_EQ(FailureOf("<doc><error/></doc>").type, "");
}

// Behaviour: An answer with an error is raised with the ...
TEST(Answer, IsNoErrorWhereOneStandsDeeper) {
    EXPECT_EQ(FailureOf("<doc><elem><error>text</error></elem></doc>").type, "none");
}

// Behaviour: An answer that cannot be read is an error "protocol"
TEST(Answer, IsOfTypeProtocolWhereItCannotBeRead) {
    for (const char* body : {"", "text", "{\"a\":1}", "<doc>", "<html><body/></html>", "<a><doc/></a>"}) {
        EXPECT_EQ(FailureOf(body).type, "protocol") << body;
    }
    EXPECT_EQ(FailureOf(std::string("<doc>\0</doc>", 12)).type, "protocol");
    EXPECT_EQ(FailureOf("<a/>").text, "client: protocol: the answer has no doc element");
    EXPECT_EQ(FailureOf("").text, "client: protocol: xml: parse: No document element found at byte 0");
}

}  // namespace
