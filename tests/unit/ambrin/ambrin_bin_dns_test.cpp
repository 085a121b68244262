#include <algorithm>

#include "support/issuance.h"
#include "vek/err.h"

// Whole runs of a dns-01 job: publish, look up and pause, go on; and the time-out, which takes its records
// back.
namespace {

using ambrin_test::FakeDigestText;
using ambrin_test::IssuanceTest;
using ambrin_test::kDigCommand;
using ambrin_test::kDigestCommand;
using ambrin_test::kNewOrder;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using testing::SizeIs;

const std::string kFirstName = "_acme-challenge.shop.example.";
const std::string kSecondName = "_acme-challenge.www.shop.example.";
const std::string kZoneQuery = "panel func=domain&su=ann";

class DnsRun : public IssuanceTest {
protected:
    DnsRun() { job["check_type"] = "dns"; }

    static std::string Content(const std::string& token) { return FakeDigestText(KeyAuthz(token)); }

    static std::string Creation(const std::string& name, const std::string& token) {
        return "panel sok=ok&rtype=txt&func=domain.record.edit&name=" + name +
               "&plid=shop.example&su=ann&value=" + Content(token);
    }

    static std::string Removal(const std::string& name, const std::string& token) {
        return "panel sok=ok&rtype=txt&elid=" + name + "%20TXT%20%20" + Content(token) +
               "&func=domain.record.delete&plid=shop.example&su=ann&value=" + Content(token);
    }

    std::vector<std::string> StoryFrom(std::size_t first) const {
        const std::vector<std::string> story = Story();
        return {story.begin() + static_cast<std::ptrdiff_t>(std::min(first, story.size())), story.end()};
    }
};

TEST_F(DnsRun, FirstRunEndsWhenTheRecordsArePublished) {
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(
        StoryFrom(14),
        ElementsAre("child " + kDigestCommand, "child " + kDigestCommand, "child " + kDigestCommand,
                    kZoneQuery, Creation(kFirstName, "dns1"), kZoneQuery, Creation(kSecondName, "dns2")));
    EXPECT_THAT(world.Lines({"child"}), Not(Contains(HasSubstr("dig +noall"))));
    EXPECT_THAT(JobLog(),
                testing::IsSupersetOf({"processing,challenge_start,", "processing,challenge_created,"}));
    EXPECT_THAT(ProblemsRaised(), IsEmpty());
}

TEST_F(DnsRun, FirstRunKeepsTheOrderForTheNext) {
    Run();
    const auto posted = EndOfProcess();
    EXPECT_EQ(posted.at("attempt_count"), "1");
    EXPECT_EQ(posted.at("account_check_count"), "0");
    EXPECT_EQ(posted.at("finalize"), ambrin_test::kFinalizeUrl);
    EXPECT_EQ(posted.at("finalize_check"), "https://ca.test/order/1");
    EXPECT_THAT(posted.at("challenges"), HasSubstr("dns1"));
    EXPECT_EQ(posted.at("verified"), "off");
    EXPECT_EQ(posted.at("next_attempt"), "");
}

TEST_F(DnsRun, FirstRunWithoutPendingNamesLooksUpNothingAndGoesOn) {
    for (const std::string n : {"1", "2"}) Object("https://ca.test/authz/" + n, 200, R"({"status":"valid"})");
    EXPECT_EQ(Run(), 0);
    EXPECT_TRUE(ambrin_data.verified);
    EXPECT_THAT(world.Lines({"child"}), Not(Contains(HasSubstr("dig +noall"))));
}

TEST_F(DnsRun, RecordThatIsThereAlreadyDoesNotEndThePublication) {
    world.AlwaysPanel("sok=ok&rtype=txt&*", [](const std::string&) -> std::string {
        throw vek_err::Error::Reported("exists", "there");
    });
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(LogLines(), Contains("4 TXT record already exist").Times(2));
    EXPECT_THAT(JobLog(), Contains("processing,challenge_created,"));
}

TEST_F(DnsRun, SecondRunWithVisibleRecordsFinishesTheJob) {
    MakeSecondRun();
    visible_records = {kFirstName, kSecondName};
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(Story(), testing::IsSupersetOf({"child " + kDigCommand + "'TXT' '" + kFirstName + "'",
                                                std::string("POST https://ca.test/dns/1 null"),
                                                Removal(kFirstName, "dns1"), Removal(kSecondName, "dns2")}));
    EXPECT_THAT(Story(), Not(Contains(HasSubstr(kNewOrder))));
    EXPECT_THAT(Story(), Not(Contains(HasSubstr("domain.record.edit"))));
    EXPECT_THAT(Story(), Not(Contains(HasSubstr("'NS'"))));
    EXPECT_TRUE(ambrin_data.verified);
    EXPECT_EQ(ambrin_data.next_attempt, "");
}

TEST_F(DnsRun, MissingRecordPausesTheJobForHalfAnHour) {
    MakeSecondRun();
    visible_records = {kFirstName};
    EXPECT_EQ(Run(), 0);
    const std::string problem =
        " message date=2030-06-01 12:30:00 name=shop.example ns=ns1.example., ns2.example. records=" +
        kSecondName + " TXT " + Content("dns2");
    EXPECT_THAT(ProblemsRaised(),
                ElementsAre("ann: ambrin_pause" + problem, "(none): ambrin_pause" + problem));
    EXPECT_THAT(StoryFrom(8),
                ElementsAre("child " + kDigCommand + "'TXT' '" + kFirstName + "'",
                            "child " + kDigCommand + "'TXT' '" + kSecondName + "'",
                            "child " + kDigCommand + "'NS' 'shop.example'",
                            HasSubstr("func=problems.register"), HasSubstr("func=problems.register")));
    EXPECT_THAT(Traces(), Contains("next attempt '2030-06-01 12:30:00'"));
    EXPECT_THAT(JobLog(), IsEmpty());
}

TEST_F(DnsRun, PausedJobKeepsItsChallenges) {
    MakeSecondRun();
    Run();
    const auto posted = EndOfProcess();
    EXPECT_EQ(posted.at("next_attempt"), "2030-06-01 12:30:00");
    EXPECT_EQ(posted.at("attempt_count"), "2");
    EXPECT_EQ(posted.at("challenges"), job["challenges"]);
    EXPECT_EQ(posted.at("finalize"), ambrin_test::kFinalizeUrl);
    EXPECT_EQ(posted.at("failed"), "off");
    EXPECT_EQ(posted.at("log"), "");
}

TEST_F(DnsRun, PauseNamesEveryMissingRecordAndToldAddressee) {
    MakeSecondRun();
    job["res_name"] = "reseller";
    Run();
    ASSERT_THAT(ProblemsRaised(), SizeIs(3));
    EXPECT_THAT(ProblemsRaised(), Each(HasSubstr("records=" + kFirstName + " TXT " + Content("dns1") + ", " +
                                                 kSecondName + " TXT " + Content("dns2"))));
    EXPECT_THAT(ProblemsRaised().at(1), HasSubstr("reseller: ambrin_pause"));
}

TEST_F(DnsRun, JobPausedBeforeGoesOnWhenItsRecordsAppear) {
    MakeSecondRun();
    job["attempt_count"] = "9";
    job["next_attempt"] = "2030-06-01 12:00:00";
    visible_records = {kFirstName, kSecondName};
    EXPECT_EQ(Run(), 0);
    EXPECT_TRUE(ambrin_data.verified);
    EXPECT_EQ(ambrin_data.attempt_count, 0);
}

class TimedOutRun : public DnsRun {
protected:
    TimedOutRun() { job["time_started"] = "2030-05-31 12:00:00"; }

    static constexpr const char* kReadJob = "panel func=ambrin.data.edit&elid=7&out=xml";
};

TEST_F(TimedOutRun, OneDayToTheSecondIsTimedOut) {
    job["check_type"] = "http";
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(ProblemsRaised(), ElementsAre("ann: ambrin_failed_user error error= name=shop.example",
                                              "(none): ambrin_failed_admin error error= name=shop.example"));
    EXPECT_TRUE(ambrin_data.failed);
    EXPECT_THAT(JobLog(), ElementsAre("failed,timeout_error,"));
    EXPECT_THAT(Traces(), ElementsAre("start 'shop.example' cert verification", "Ambrin stop trying"));
}

TEST_F(TimedOutRun, OneSecondLessIsNot) {
    job["time_started"] = "2030-05-31 12:00:01";
    EXPECT_EQ(Run(), 0);
    EXPECT_FALSE(ambrin_data.failed);
    EXPECT_EQ(ambrin_data.attempt_count, 1);
}

TEST_F(TimedOutRun, DnsJobTakesItsRecordsBackFirst) {
    MakeSecondRun();
    EXPECT_EQ(Run(), 0);
    const std::string digest = "child " + kDigestCommand;
    EXPECT_THAT(Story(), ElementsAre(kReadJob, digest, digest, digest, kZoneQuery,
                                     Removal(kFirstName, "dns1"), kZoneQuery, Removal(kSecondName, "dns2"),
                                     HasSubstr("problems.register"), HasSubstr("problems.register")));
    EXPECT_TRUE(ambrin_data.failed);
}

TEST_F(TimedOutRun, DnsJobWithoutStoredChallengesIsJustStopped) {
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(Story(),
                ElementsAre(kReadJob, HasSubstr("problems.register"), HasSubstr("problems.register")));
    EXPECT_TRUE(ambrin_data.failed);
}

TEST_F(TimedOutRun, HttpJobLeavesItsFilesToThePanel) {
    MakeSecondRun();
    job["check_type"] = "http";
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(Story(),
                ElementsAre(kReadJob, HasSubstr("problems.register"), HasSubstr("problems.register")));
}

TEST_F(TimedOutRun, RecordIsWrittenBackAsStoppedWithItsAttemptsUncounted) {
    MakeSecondRun();
    Run();
    const auto posted = EndOfProcess();
    EXPECT_EQ(posted.at("failed"), "on");
    EXPECT_EQ(posted.at("verified"), "off");
    EXPECT_EQ(posted.at("attempt_count"), "1");
    EXPECT_EQ(posted.at("challenges"), job["challenges"]);
    EXPECT_EQ(posted.at("log"), "2030-06-01 12:00:00,failed,timeout_error,");
}

TEST_F(TimedOutRun, RecordThatCannotBeRemovedEndsTheRunByThePanelsError) {
    MakeSecondRun();
    world.AlwaysPanel("sok=ok&rtype=txt&*", [](const std::string&) -> std::string {
        throw vek_err::Error::Reported("dns", "server failure");
    });
    EXPECT_THROW(Run(), vek_err::Error);
    EXPECT_FALSE(ambrin_data.failed);
    EXPECT_THAT(ProblemsRaised(), IsEmpty());
    EXPECT_EQ(EndOfProcess().at("failed"), "off");
}

TEST_F(TimedOutRun, NotificationThatFailsLeavesTheJobUnmarked) {
    world.AlwaysPanel(ambrin_test::kProblem, [](const std::string&) -> std::string {
        throw vek_err::Error::Reported("value", "no");
    });
    EXPECT_THROW(Run(), vek_err::Error);
    EXPECT_FALSE(ambrin_data.failed);
    EXPECT_THAT(JobLog(), IsEmpty());
}

TEST_F(TimedOutRun, FailedJobIsStoppedAgain) {
    job["failed"] = "on";
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(ProblemsRaised(), SizeIs(2));
    EXPECT_TRUE(ambrin_data.failed);
}

TEST_F(TimedOutRun, UnreadableStartTimeEndsTheRunByAnError) {
    for (const std::string start : {"", "yesterday", "2030-02-30 00:00:00"}) {
        job["time_started"] = start;
        EXPECT_THROW(Run(), vek_err::Error) << start;
    }
    EXPECT_EQ(EndOfProcess().at("attempt_count"), "0");
}

TEST_F(TimedOutRun, StartTimeInTheFutureIsNoTimeOut) {
    job["time_started"] = "2031-01-01 00:00:00";
    EXPECT_EQ(Run(), 0);
    EXPECT_FALSE(ambrin_data.failed);
}

}  // namespace
