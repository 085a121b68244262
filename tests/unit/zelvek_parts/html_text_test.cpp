#include "zelvek/base/html_text.h"

#include <gtest/gtest.h>

namespace {

using zelvek::TextOfHtml;

// Behaviours of: Command line

// Behaviour: Of an authority's HTML people are shown the text
TEST(TextOfHtml, IsWhatABrowserShows) {
    EXPECT_EQ(TextOfHtml("<p><b>Return code:</b> 403</p></br><p><b>Details:</b> no &lt;such&gt; name</p>"),
              "Return code: 403 Details: no <such> name");
    EXPECT_EQ(
        TextOfHtml("<!DOCTYPE html>\n<html><head><title>502 Bad Gateway</title>\r\n"
                   "<STYLE type='a'>p { color: red }</STYLE><script>alert('<p>')</script></head>\n"
                   "<body bgcolor=\"white\">\n<center><h1>502 Bad Gateway</h1></center>\n<!-- a <b> c -->"
                   "<hr/>nginx<br>behind&nbsp;it&#58; &#x61;&#xFC;&#128273;</body></html>\n"),
        "502 Bad Gateway 502 Bad Gateway nginx behind it: aü🔑");
}

// Behaviour: Of an authority's HTML ...
TEST(TextOfHtml, LeavesATextThatIsNoHtml) {
    for (const char* text : {"",
                             "plain",
                             "a < b > c",
                             "<anna@shop.example>",
                             "<https://ca.example/a>",
                             "<pp>",
                             "x<",
                             "</",
                             "<p",
                             "<script",
                             "<b",
                             "<!",
                             "<!--",
                             "<!-- never ends",
                             "&",
                             "&amp",
                             "&;",
                             "&#;",
                             "&#x;",
                             "&#xd800;",
                             "&#1114112;",
                             "&#99999999999;",
                             "&unknown;",
                             "&#-1;",
                             "bücher \xff"}) {
        EXPECT_EQ(TextOfHtml(text), text);
    }
    EXPECT_EQ(TextOfHtml("  a \n\t b  "), "a b");
}

// Behaviour: Of an authority's HTML ...
TEST(TextOfHtml, EndsWithAScriptThatDoesNot) {
    EXPECT_EQ(TextOfHtml("a<script>b"), "a b");
    EXPECT_EQ(TextOfHtml("a<script/x>b</script >c"), "a c");
    EXPECT_EQ(TextOfHtml("&amp;lt;b&amp;gt;"), "&lt;b&gt;") << "once";
    EXPECT_EQ(TextOfHtml("&lt;script&gt;"), "<script>");
}

// Behaviour: HTML of any length is read once, whatever does not end in it
TEST(TextOfHtml, TakesTimeWithTheLengthAlone) {
    for (const std::string part : {"<", "<b ", "<!--", "<!", "<script>", "<style>", "&", "&#", "</", "<b>"}) {
        std::string text = part;
        while (text.size() < LONG_TEXT) text += text;
        EXPECT_LE(TextOfHtml(text).size(), text.size());
    }
}

}  // namespace
