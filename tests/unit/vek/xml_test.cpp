#include "vek/xml.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "vek/err.h"

namespace {

using vek_xml::EscapePropValue;
using vek_xml::Xml;

std::string TypeOfError(const std::string& text) {
    try {
        const Xml xml(text);
        return "none";
    } catch (const vek_err::Error& e) {
        return e.type();
    }
}

// Behaviours of: Texts, dates, names, XML

// Behaviour: Nodes are found by XPath in document order; a bad expression is an error
TEST(Xml, FindsNodesByXPath) {
    const Xml xml("<doc><elem><id>1</id><name>a</name></elem><elem><id>2</id><name>b</name></elem></doc>");
    EXPECT_EQ(xml.GetNode("/doc/elem[name='b']").Value("id"), "2");
    EXPECT_TRUE(xml.GetNode("/doc/elem"));
    EXPECT_FALSE(xml.GetNode("/doc/elem[name='c']"));
    EXPECT_EQ(xml.GetNodes("/doc/elem").size(), 2U);
}

// Behaviour: Nodes are found by XPath in document order ...
TEST(Xml, GivesNodesInTheirOrder) {
    const Xml xml("<doc><a>1</a><b>2</b><a>3</a></doc>");
    EXPECT_EQ(xml.GetNode("//b | //a").Text(), "1");
    EXPECT_EQ(xml.GetNodes("//b | //a").back().Text(), "3");
}

// Behaviour: An XPath expression selects elements alone: no attribute, no text, not the document
TEST(Xml, SelectsElementsOnly) {
    const Xml xml("<doc type='x'>text</doc>");
    EXPECT_FALSE(xml.GetNode("/doc/@type"));
    EXPECT_FALSE(xml.GetNode("/doc/text()"));
    EXPECT_FALSE(xml.GetNode("/"));
}

// Behaviour: Nodes are found by XPath in document order ...
TEST(Xml, RefusesABadXPath) {
    const Xml xml("<doc/>");
    for (const std::string xpath : {"/doc[", "", "concat('a','b')", "/doc[name='x\"]"}) {
        try {
            xml.GetNode(xpath);
            ADD_FAILURE() << xpath;
        } catch (const vek_err::Error& e) {
            EXPECT_EQ(e.type(), "xpath");
        }
    }
    EXPECT_THROW(xml.GetNode(std::string("/doc\0]", 6)), vek_err::Error);
}

// Behaviour: What is no document is refused; nesting of any depth is survived
TEST(Xml, RefusesWhatIsNoDocument) {
    for (const std::string text :
         {"", " ", "text", "<doc>", "<doc></dob>", "{\"a\":1}", "<doc><a></doc>", "<doc", "<>"}) {
        EXPECT_EQ(TypeOfError(text), "parse") << text;
    }
    EXPECT_EQ(TypeOfError(std::string("<doc/>\0", 7)), "parse");
    EXPECT_EQ(TypeOfError(std::string("<doc>a\0b</doc>", 14)), "parse");
}

// Behaviour: What is no document is refused; nesting of ...
TEST(Xml, SaysWhatItRefuses) {
    const auto said = [](const std::string& text, const std::string& xpath) -> std::string {
        try {
            Xml(text).GetNode(xpath);
            return "";
        } catch (const vek_err::Error& e) {
            return e.what();
        }
    };
    EXPECT_EQ(said("<doc><a></doc>", "/doc"), "xml: parse: Start-end tags mismatch at byte 10");
    EXPECT_EQ(said(std::string("<doc/>\0", 7), "/doc"), "xml: parse: NUL byte");
    EXPECT_EQ(said("<doc/>", std::string("/doc\0]", 6)), "xml: xpath: NUL byte in /doc");
    EXPECT_THAT(said("<doc/>", "/doc["), testing::MatchesRegex("xml: xpath: /doc\\[ \\(.+\\)"));
}

// Behaviour: Texts and attributes are given with their entities resolved; one that is missing reads as empty
TEST(Xml, GivesTextsAndAttributes) {
    const Xml xml(
        "<doc><error type='exists' object=\"r&quot;\"><msg>a &lt;b&gt; &amp; "
        "&#x41;&#66;</msg></error></doc>");
    const auto error = xml.GetNode("/doc/error");
    EXPECT_EQ(error.Attribute("type"), "exists");
    EXPECT_EQ(error.Attribute("object"), "r\"");
    EXPECT_EQ(error.Attribute("none"), "");
    EXPECT_EQ(error.Value("msg"), "a <b> & AB");
    EXPECT_EQ(error.Value("none"), "");
}

// Behaviour: An element gives its own children of one name, not their descendants
TEST(Xml, GivesAnElementsChildrenOfOneName) {
    const Xml xml("<doc><elem><p>1</p><q>no</q><p><p>inner</p>2</p></elem><elem><p>3</p></elem></doc>");
    const auto children = xml.GetNode("/doc/elem").Children("p");
    ASSERT_EQ(children.size(), 2U);
    EXPECT_EQ(children[0].Text(), "1");
    EXPECT_EQ(children[1].Text(), "2");
    EXPECT_EQ(children[1].Children("p").size(), 1U);
    EXPECT_TRUE(children[0].Children("p").empty());
}

// Behaviour: A node that is none is false, and everything in it reads as empty
TEST(Xml, GivesNothingForNoElement) {
    const vek_xml::Node none;
    EXPECT_FALSE(none);
    EXPECT_EQ(none.Text(), "");
    EXPECT_EQ(none.Value("a"), "");
    EXPECT_EQ(none.Attribute("a"), "");
    EXPECT_TRUE(none.Children("a").empty());
}

// Behaviour: XML keeps white space, line ends and UTF-8, and expands no entities of documents
TEST(Xml, KeepsWhiteSpace) {
    EXPECT_EQ(Xml("<doc>  </doc>").GetNode("/doc").Text(), "  ");
    EXPECT_EQ(Xml("<doc>\n\t x \n</doc>").GetNode("/doc").Text(), "\n\t x \n");
    EXPECT_EQ(Xml("<doc>&#10;</doc>").GetNode("/doc").Text(), "\n");
    EXPECT_EQ(Xml("<doc><a> </a><a>b</a></doc>").GetNode("/doc/a").Text(), " ");
}

// Behaviour: XML keeps white space, line ends and UTF-8 ...
TEST(Xml, KeepsLineEnds) {
    EXPECT_EQ(Xml("<doc>a&#13;\nb&#xD;&#xA;c</doc>").GetNode("/doc").Text(), "a\r\nb\r\nc");
    EXPECT_EQ(Xml("<doc>a\r\nb\rc</doc>").GetNode("/doc").Text(), "a\r\nb\rc");
    EXPECT_EQ(Xml("<doc a='&#13;&#10;&#9;x'/>").GetNode("/doc").Attribute("a"), "\r\n\tx");
}

// Behaviour: XML keeps white space, line ends and UTF-8 ...
TEST(Xml, TakesCdataForText) {
    EXPECT_EQ(Xml("<doc>a<![CDATA[<b> & ]]>c</doc>").GetNode("/doc").Text(), "a<b> & c");
    EXPECT_EQ(Xml("<doc><x><![CDATA[ ]]></x></doc>").GetNode("/doc").Value("x"), " ");
    EXPECT_TRUE(Xml("<doc><x><![CDATA[b]]></x></doc>").GetNode("/doc[x='b']"));
}

// Behaviour: An element's text is its own, joined around children and comments
TEST(Xml, JoinsTheTextAroundChildren) {
    EXPECT_EQ(Xml("<doc>a<x>inner</x>b<!-- no -->c</doc>").GetNode("/doc").Text(), "abc");
}

// Behaviour: XML keeps white space, line ends and UTF-8 ...
TEST(Xml, ExpandsNoEntitiesOfDocuments) {
    const Xml xml(
        "<!DOCTYPE doc [<!ENTITY e 'boom'><!ENTITY f SYSTEM 'file:///etc/passwd'>]><doc>&e;&f;</doc>");
    EXPECT_EQ(xml.GetNode("/doc").Text(), "&e;&f;");
}

// Behaviour: XML keeps white space, line ends and UTF-8 ...
TEST(Xml, KeepsUtf8) {
    EXPECT_EQ(Xml("<?xml version='1.0' encoding='UTF-8'?><doc>bücher</doc>").GetNode("/doc").Text(),
              "bücher");
}

// Behaviour: What is no document is refused; nesting of ...
TEST(Xml, SurvivesDeepNesting) {
    constexpr int kDepth = 200'000;
    std::string text;
    for (int i = 0; i < kDepth; ++i) text += "<a>";
    text += "x";
    for (int i = 0; i < kDepth; ++i) text += "</a>";
    const Xml xml(text);
    EXPECT_TRUE(xml.GetNode("/a"));
    EXPECT_EQ(xml.GetNode("/a").Text(), "");
    EXPECT_TRUE(xml.GetNode("//a[text()='x']"));
    EXPECT_TRUE(xml.GetNode("/a[.='x']"));
}

// Behaviour: A node lives as long as any copy of its document
TEST(Xml, IsSharedByItsCopies) {
    vek_xml::Node node;
    std::vector<Xml> copies;
    {
        const Xml xml("<doc>x</doc>");
        node = xml.GetNode("/doc");
        copies.push_back(xml);
    }
    EXPECT_EQ(node.Text(), "x");
}

std::string EscapedForXml(const std::string& value) {
    std::string text;
    for (const char c : value) text += "&#" + std::to_string(static_cast<unsigned char>(c)) + ";";
    return text;
}

// Behaviour: A quoted value finds itself in an XPath predicate, whatever quotes it holds, and selects nothing
//   else
TEST(EscapePropValue, FindsEveryValueAgain) {
    std::string many;
    for (int i = 0; i < 200; ++i) many += "'\"";
    for (const std::string& value :
         {std::string(), std::string("plain"), std::string("it's"), std::string("\"quoted\""),
          std::string("'\""), std::string("\"'"), std::string("a'b\"c'd\"\"''"), std::string("'"),
          std::string("\""), std::string("' or '1'='1"), std::string("concat('x')"), std::string("]"),
          std::string(" a\n"), many}) {
        const Xml xml("<doc><elem><name>other</name></elem><elem><name>" + EscapedForXml(value) +
                      "</name><id>7</id></elem></doc>");
        EXPECT_EQ(xml.GetNode("/doc/elem[name=" + EscapePropValue(value) + "]").Value("id"), "7")
            << value.substr(0, 40);
    }
}

// Behaviour: A quoted value finds itself in an XPath predicate ...
TEST(EscapePropValue, QuotesWithWhatTheValueLacks) {
    EXPECT_EQ(EscapePropValue(""), "''");
    EXPECT_EQ(EscapePropValue("a\"b"), "'a\"b'");
    EXPECT_EQ(EscapePropValue("it's"), "\"it's\"");
    EXPECT_EQ(EscapePropValue("a'b\"c"), "concat(\"a'b\",'\"c')");
    EXPECT_EQ(EscapePropValue("\"''"), "concat('\"',\"''\")");
}

// Behaviour: A value with thousands of quotes in a row finds itself
// The parser limits the depth of an expression.
TEST(EscapePropValue, OfThousandsOfQuotesInARowIsFound) {
    const std::string value = std::string(5000, '\'') + '"' + std::string(5000, '\'') + "x";
    const Xml xml("<doc><elem><name>" + EscapedForXml(value) + "</name><id>7</id></elem></doc>");
    EXPECT_EQ(xml.GetNode("/doc/elem[name=" + EscapePropValue(value) + "]").Value("id"), "7");
}

// Behaviour: A quoted value finds itself in an XPath predicate ...
TEST(EscapePropValue, OfThousandsOfQuotesIsRefusedRatherThanMisread) {
    std::string many;
    for (int i = 0; i < 5000; ++i) many += "'\"";
    const Xml xml("<doc><name>x</name></doc>");
    EXPECT_THROW(xml.GetNode("/doc[name=" + EscapePropValue(many) + "]"), vek_err::Error);
}

// Behaviour: A quoted value finds itself in an XPath predicate ...
TEST(EscapePropValue, SelectsNothingElse) {
    const Xml xml("<doc><elem><name>a</name></elem></doc>");
    for (const char* value : {"' or '1'='1", "\" or \"1\"=\"1", "'\" or true() or '\"", "b"}) {
        EXPECT_FALSE(xml.GetNode("/doc/elem[name=" + EscapePropValue(value) + "]")) << value;
    }
}

}  // namespace
