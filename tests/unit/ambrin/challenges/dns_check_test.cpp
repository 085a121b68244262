#include "challenges/dns_check.h"

#include "support/job_test.h"
#include "vek/err.h"
#include "vek/proc.h"

namespace {

using ambrin_test::JobTest;
using ambrin_test::kDigCommand;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class DnsLookUp : public JobTest {
protected:
    std::string DigAnsweredBy(const std::string& output, int status = 0) {
        world.AnswerChild("dig *", {output, status});
        return Dig("name.example.", "TXT");
    }
};

// Behaviours of: DNS check

// Behaviour: A look-up is one run of dig with "+noall +answer", five resolvers, type and name
TEST_F(DnsLookUp, IsOneRunOfDigThatNamesFiveResolvers) {
    DigAnsweredBy("");
    EXPECT_THAT(Story(), ElementsAre("child " + kDigCommand + "'TXT' 'name.example.'"));
    EXPECT_EQ(world.calls().front().detail, "134");
}

// Behaviour: Type and name are quoted for the shell
TEST_F(DnsLookUp, NamesAreQuotedForTheShell) {
    world.AnswerChild("*", {});
    Dig("x; rm -rf /", "N'S");
    EXPECT_THAT(Story(), ElementsAre("child " + kDigCommand + "'N'\\''S' 'x; rm -rf /'"));
}

// Behaviour: The result is the last column of every line, in dig's order, with ", " between; quotes stay
// Behaviour: The result is traced
TEST_F(DnsLookUp, AnswersKeepTheirQuotesAndTheirOrder) {
    EXPECT_EQ(
        DigAnsweredBy("name.example.\t300\tIN\tTXT\t\"second\"\nname.example.\t300\tIN\tTXT\t\"first\"\n"),
        "\"second\", \"first\"");
    EXPECT_THAT(Traces(), ElementsAre("Dig result '\"second\", \"first\"'"));
}

// Behaviour: Repeated answers stay
TEST_F(DnsLookUp, RepeatedAnswersStay) { EXPECT_EQ(DigAnsweredBy("a\tx\nb\tx\n"), "x, x"); }

// Behaviour: A line without a tab stands whole
TEST_F(DnsLookUp, LineWithoutTabStandsWhole) {
    EXPECT_EQ(DigAnsweredBy(";; communications error to 8.8.8.8#53: timed out\nn\tTXT\t\"x\""),
              ";; communications error to 8.8.8.8#53: timed out, \"x\"");
}

// Behaviour: Lines and columns are trimmed, empty ones skipped
TEST_F(DnsLookUp, LinesAreTrimmedAndEmptyOnesSkipped) {
    EXPECT_EQ(DigAnsweredBy("\n n\t \"x\" \t\r\n\n\t\nn\t\"y\"\n\n"), "\"x\", \"y\"");
}

// Behaviour: The exit status is not looked at
TEST_F(DnsLookUp, ExitStatusIsNotLookedAt) {
    EXPECT_EQ(DigAnsweredBy("n\t\"x\"\n", 9), "\"x\"");
    EXPECT_EQ(DigAnsweredBy("", 127), "");
}

// Behaviour: Errors of the process and interruptions travel to the caller
TEST_F(DnsLookUp, ErrorsOfTheProcessTravelToTheCaller) {
    world.FailAt("child", 1, vek_double::Failure::kError);
    EXPECT_THROW(Dig("n", "TXT"), vek_err::Error);
}

// Behaviour: Errors of the process and interruptions travel ...
TEST_F(DnsLookUp, InterruptedLookUpEndsTheRun) {
    world.FailAt("child", 1, vek_double::Failure::kInterrupted);
    EXPECT_THROW(Dig("n", "TXT"), vek_proc::Interrupted);
}

class Propagation : public JobTest {
protected:
    void AnswerRecord(const std::string& domain, const std::string& data) {
        const std::string name = "_acme-challenge." + domain + ".";
        world.AnswerChild(kDigCommand + "'TXT' '" + name + "'",
                          {data.empty() ? "" : name + "\t300\tIN\tTXT\t" + data + "\n", 0});
    }

    const std::list<ChallengeData> challenges{{"t1", "u1", "example.org", "a1", "c1"},
                                              {"t2", "u2", "mail.example.org", "a2", "c2"}};
    std::string missing;
};

// Behaviour: A record is visible when its content occurs anywhere in the answers
// Behaviour: Every challenge is looked up by one run ...
TEST_F(Propagation, RecordsAreVisibleQuotesAndAll) {
    AnswerRecord("example.org", "\"other\"\nx\t\"c1\"");
    AnswerRecord("mail.example.org", "c2");
    EXPECT_TRUE(DigAllRecords(challenges, missing));
    EXPECT_EQ(missing, "");
    EXPECT_THAT(Story(), SizeIs(2));
}

// Behaviour: Each missing record is traced and has one entry: absolute name, " TXT ", content
TEST_F(Propagation, EachMissingRecordHasOneEntry) {
    AnswerRecord("example.org", "\"c1\"");
    AnswerRecord("mail.example.org", "\"c1\"");
    EXPECT_FALSE(DigAllRecords(challenges, missing));
    EXPECT_EQ(missing, "_acme-challenge.mail.example.org. TXT c2");
    EXPECT_THAT(Traces(), ElementsAre("Dig result '\"c1\"'", "Dig result '\"c1\"'",
                                      "cant find valid record with data 'c2'"));
}

// Behaviour: Every challenge is looked up by one run, even after a missing one
TEST_F(Propagation, MissingFirstRecordDoesNotEndTheCheck) {
    AnswerRecord("example.org", "");
    AnswerRecord("mail.example.org", "");
    EXPECT_FALSE(DigAllRecords(challenges, missing));
    EXPECT_EQ(missing, "_acme-challenge.example.org. TXT c1, _acme-challenge.mail.example.org. TXT c2");
}

// Behaviour: Entries are appended to the caller's text with ", "
TEST_F(Propagation, EntriesAreAppendedToTheCallersText) {
    missing = "earlier";
    AnswerRecord("example.org", "");
    AnswerRecord("mail.example.org", "\"c2\"");
    EXPECT_FALSE(DigAllRecords(challenges, missing));
    EXPECT_EQ(missing, "earlier, _acme-challenge.example.org. TXT c1");
}

// Behaviour: A record is visible when its content occurs ...
TEST_F(Propagation, ContentCountsAnywhereInTheAnswers) {
    AnswerRecord("example.org", "\"xc1x\"");
    AnswerRecord("mail.example.org", "\"c2\"");
    EXPECT_TRUE(DigAllRecords(challenges, missing));
}

// Behaviour: An empty list is visible without a run of dig
TEST_F(Propagation, EmptyListIsVisibleWithoutARunOfDig) {
    EXPECT_TRUE(DigAllRecords({}, missing));
    EXPECT_THAT(world.calls(), IsEmpty());
}

}  // namespace
