#include "zelvek/cli/steps.h"

#include <gtest/gtest.h>

#include "zelvek/records/event_words.h"

namespace zelvek::cli {
namespace {

std::string Trace(const std::string& text) {
    return StepOfLine("2026-11-20 10:21:03 [7] TRACE zelvek.sslcert ambrin_bin:135 " + text);
}

std::string Event(const std::string& state, const std::string& event, const std::string& detail) {
    const vek_client::Result answer("<doc><event><time>2026-11-20 10:21:03</time><state>" + state +
                                    "</state><event>" + event + "</event><detail>" + detail +
                                    "</detail></event></doc>");
    return StepOfEvent(answer.xml().GetNode("/doc/event"));
}

// Behaviours of: Command line

// Behaviour: A run's steps are told in plain words, one line each, with their times
TEST(Steps, AreToldInPlainWords) {
    EXPECT_EQ(Trace("start 'shop.example' cert verification"),
              "10:21:03  the run begins for the certificate shop.example");
    EXPECT_EQ(Trace("create csr for domains 'a.example b.example'"),
              "10:21:03  makes a key and a request for a.example b.example");
    EXPECT_EQ(Trace("Ambrin new order"), "10:21:03  places the order");
    EXPECT_EQ(Trace("domain 'it's'"), "10:21:03  has to prove it's");
    EXPECT_EQ(Trace("domain 'half"), "10:21:03  has to prove half");
    EXPECT_EQ(Trace("next attempt '2026-11-20 10:51:03'"),
              "10:21:03  waits for the records, until 2026-11-20 10:51:03");
    EXPECT_EQ(StepOfLine("2026-11-20 10:21:03 [7] WARNING zelvek.sslcert Registration failed"),
              "10:21:03  note: Registration failed");
    EXPECT_EQ(StepOfLine("2026-11-20 10:21:03 [7] ERROR vek.launcher it broke"),
              "10:21:03  failed: it broke");
}

// Behaviour: A run's steps are told in plain words ...
TEST(Steps, AreNotEveryLineOfTheLog) {
    for (const char* line :
         {"", "more of an entry", "2026-11-20 10:21:03", "2026-11-20 10:21:03 ", "2026-11-20 10:21:03 [7]",
          "2026-11-20 10:21:03 [7] TRACE", "2026-11-20 10:21:03 [7] FUNCTION zelvek.sslcert AcmePost",
          "2026-11-20 10:21:03 [7] TRACE zelvek.sslcert ambrin_bin:78 Acme request url "
          "'https://ca.example'"}) {
        EXPECT_EQ(StepOfLine(line), "") << line;
    }
}

// Behaviour: No text from outside controls the terminal ...
TEST(Steps, HoldNoControlCharactersAndNoEndlessTexts) {
    EXPECT_EQ(Trace("domain '\x1b[31m\u202e'"), "10:21:03  has to prove ?[31m?");
    EXPECT_LT(Trace("domain '" + std::string(100'000, 'x') + "'").size(), 400U);
    EXPECT_EQ(records::WordsOfEvent("cert_order_fail", "a\x1b[31m\nb"),
              "the authority refuses the certificate: a [31m b");
}

// Behaviour: What failed in a run is told in plain words, with the text of the authority's details
TEST(Steps, TellWhatFailed) {
    EXPECT_EQ(
        Event("failed", "challenge_fail",
              "&lt;p&gt;&lt;b&gt;Return code:&lt;/b&gt; 403&lt;/p&gt;&lt;/br&gt;&lt;p&gt;&lt;b&gt;Details:"
              "&lt;/b&gt; no answer&lt;/p&gt;"),
        "10:21:03  failed: the authority refuses a name's proof: Return code: 403 Details: no answer");
    EXPECT_EQ(Event("processing", "order_success", ""), "10:21:03  the order is placed");
    EXPECT_EQ(Event("processing", "news", "of a later version"), "10:21:03  news: of a later version");
    EXPECT_EQ(records::WordsOfEvent("", "a text alone"), "a text alone");
}

}  // namespace
}  // namespace zelvek::cli
