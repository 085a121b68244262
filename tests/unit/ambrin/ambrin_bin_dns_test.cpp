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

// Behaviours of: Course of a run

// Behaviour: A dns run that has just published ends with status 0 and never looks the records up
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

// Behaviour: A dns run leaves order and authorizations in the record for the next one
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

// Behaviour: An order whose names are all valid already ...
TEST_F(DnsRun, FirstRunWithoutPendingNamesLooksUpNothingAndGoesOn) {
    for (const std::string n : {"1", "2"}) Object("https://ca.test/authz/" + n, 200, R"({"status":"valid"})");
    EXPECT_EQ(Run(), 0);
    EXPECT_TRUE(ambrin_data.verified);
    EXPECT_THAT(world.Lines({"child"}), Not(Contains(HasSubstr("dig +noall"))));
}

// Behaviour: A whole publication goes on over records that exist
TEST_F(DnsRun, RecordThatIsThereAlreadyDoesNotEndThePublication) {
    world.AlwaysPanel("sok=ok&rtype=txt&*", [](const std::string&) -> std::string {
        throw vek_err::Error::Reported("exists", "there");
    });
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(LogLines(), Contains("4 TXT record already exist").Times(2));
    EXPECT_THAT(JobLog(), Contains("processing,challenge_created,"));
}

// Behaviour: The name servers are looked up once, for the job's main domain, and only when records are
//   missing
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

// Behaviour: A record that is not visible pauses the job: status 0 and the next attempt in 1800 seconds
// Behaviour: A pause is traced with the time of the next attempt
// Behaviour: The pause tells everybody the certificate's name, the next attempt, the zone's name servers and
//   the missing records
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

// Behaviour: A paused job keeps challenges and order, and writes no log entry
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

// Behaviour: The half hour of a pause counts from the moment of the time-out check, however long the run
//   takes from there to the pause
TEST_F(DnsRun, PauseCountsFromTheMomentOfTheTimeOutCheck) {
    MakeSecondRun();
    const auto take_time = [this](const std::string& query, const std::string& until) {
        world.AlwaysPanel(query, [=, this](const std::string&) {
            world.SetNow(until);
            return query.ends_with("out=xml") ? ambrin_test::PanelValues(job) : "<doc/>";
        });
    };
    take_time("func=ambrin.data.edit&elid=7&out=xml", "2030-06-01 12:10:00");
    take_time("func=sslcert.csr.delete&elid=shop.example", "2030-06-01 12:11:00");
    world.AlwaysChild(kDigCommand + "*", [this](const std::string&) {
        world.SetNow("2030-06-01 12:12:00");
        return vek_double::ChildAnswer{};
    });
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(ambrin_data.next_attempt, "2030-06-01 12:40:00");
    EXPECT_THAT(Traces(), Contains("next attempt '2030-06-01 12:40:00'"));
    EXPECT_THAT(ProblemsRaised(), Each(HasSubstr("date=2030-06-01 12:40:00")));
}

// Behaviour: The next attempt is in the record before the name servers are looked up
TEST_F(DnsRun, NextAttemptIsSetBeforeTheNameServersAreLookedUp) {
    MakeSecondRun();
    std::string next_attempt_at_look_up;
    world.AlwaysChild(kDigCommand + "'NS' 'shop.example'", [&](const std::string&) {
        next_attempt_at_look_up = ambrin_data.next_attempt;
        return vek_double::ChildAnswer{};
    });
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(next_attempt_at_look_up, "2030-06-01 12:30:00");
    const std::vector<std::string> traces = Traces();
    ASSERT_GT(traces.size(), 1U);
    EXPECT_THAT(std::vector(traces.end() - 2, traces.end()),
                ElementsAre("next attempt '2030-06-01 12:30:00'", "Dig result ''"));
}

// Behaviour: The pause tells everybody the certificate's ...
TEST_F(DnsRun, PauseNamesEveryMissingRecordAndToldAddressee) {
    MakeSecondRun();
    job["res_name"] = "reseller";
    Run();
    ASSERT_THAT(ProblemsRaised(), SizeIs(3));
    EXPECT_THAT(ProblemsRaised(), Each(HasSubstr("records=" + kFirstName + " TXT " + Content("dns1") + ", " +
                                                 kSecondName + " TXT " + Content("dns2"))));
    EXPECT_THAT(ProblemsRaised().at(1), HasSubstr("reseller: ambrin_pause"));
}

// Behaviour: A paused job goes on as soon as its records are visible, however many attempts it took
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

// Behaviours of: Time-out

// Behaviour: A job is timed out one day after its start, to the second
// Behaviour: A timed-out job is stopped with an empty error text, logged as failed / timeout_error, and the
//   status is 0
TEST_F(TimedOutRun, OneDayToTheSecondIsTimedOut) {
    job["check_type"] = "http";
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(ProblemsRaised(), ElementsAre("ann: ambrin_failed_user error error= name=shop.example",
                                              "(none): ambrin_failed_admin error error= name=shop.example"));
    EXPECT_TRUE(ambrin_data.failed);
    EXPECT_THAT(JobLog(), ElementsAre("failed,timeout_error,"));
    EXPECT_THAT(Traces(), ElementsAre("start 'shop.example' cert verification", "Ambrin stop trying"));
}

// Behaviour: One second before a day is over the job goes on
TEST_F(TimedOutRun, OneSecondLessIsNot) {
    job["time_started"] = "2030-05-31 12:00:01";
    EXPECT_EQ(Run(), 0);
    EXPECT_FALSE(ambrin_data.failed);
    EXPECT_EQ(ambrin_data.attempt_count, 1);
}

// Behaviour: Blanks around the start time count for nothing
TEST_F(TimedOutRun, BlanksAroundTheStartTimeCountForNothing) {
    job["time_started"] = " 2030-05-31 12:00:00 \n";
    EXPECT_EQ(Run(), 0);
    EXPECT_TRUE(ambrin_data.failed);
    job["time_started"] = " 2030-05-31 12:00:01 \n";
    EXPECT_EQ(Run(), 0);
    EXPECT_FALSE(ambrin_data.failed);
}

// Behaviour: A timed-out dns job has its published records removed first
TEST_F(TimedOutRun, DnsJobTakesItsRecordsBackFirst) {
    MakeSecondRun();
    EXPECT_EQ(Run(), 0);
    const std::string digest = "child " + kDigestCommand;
    EXPECT_THAT(Story(), ElementsAre(kReadJob, digest, digest, digest, kZoneQuery,
                                     Removal(kFirstName, "dns1"), kZoneQuery, Removal(kSecondName, "dns2"),
                                     HasSubstr("problems.register"), HasSubstr("problems.register")));
    EXPECT_TRUE(ambrin_data.failed);
}

// Behaviour: A timed-out dns job whose list is empty or cannot be made is just stopped
TEST_F(TimedOutRun, DnsJobWithoutStoredChallengesIsJustStopped) {
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(Story(),
                ElementsAre(kReadJob, HasSubstr("problems.register"), HasSubstr("problems.register")));
    EXPECT_TRUE(ambrin_data.failed);
}

// Behaviour: A timed-out job of any check type but exactly "dns" removes nothing
TEST_F(TimedOutRun, HttpJobLeavesItsFilesToThePanel) {
    MakeSecondRun();
    job["check_type"] = "http";
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(Story(),
                ElementsAre(kReadJob, HasSubstr("problems.register"), HasSubstr("problems.register")));
}

// Behaviour: A time-out changes nothing in the record but "failed"; the attempt is not counted, the
//   challenges stay
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

// Behaviour: A record that cannot be removed ends the time-out by the panel's error, before anybody is told
//   and with the job unmarked
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

// Behaviour: A notification that fails leaves a timed-out job unmarked and unlogged
TEST_F(TimedOutRun, NotificationThatFailsLeavesTheJobUnmarked) {
    world.AlwaysPanel(ambrin_test::kProblem, [](const std::string&) -> std::string {
        throw vek_err::Error::Reported("value", "no");
    });
    EXPECT_THROW(Run(), vek_err::Error);
    EXPECT_FALSE(ambrin_data.failed);
    EXPECT_THAT(JobLog(), IsEmpty());
}

// Behaviour: A job that has failed before is stopped again
TEST_F(TimedOutRun, FailedJobIsStoppedAgain) {
    job["failed"] = "on";
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(ProblemsRaised(), SizeIs(2));
    EXPECT_TRUE(ambrin_data.failed);
}

// Behaviour: A start time that cannot be read ends the run by an error, with the attempt uncounted
TEST_F(TimedOutRun, UnreadableStartTimeEndsTheRunByAnError) {
    for (const std::string start : {"", "yesterday", "2030-02-30 00:00:00"}) {
        job["time_started"] = start;
        EXPECT_THROW(Run(), vek_err::Error) << start;
    }
    EXPECT_EQ(EndOfProcess().at("attempt_count"), "0");
}

// Behaviour: A start in the future is no time-out
TEST_F(TimedOutRun, StartTimeInTheFutureIsNoTimeOut) {
    job["time_started"] = "2031-01-01 00:00:00";
    EXPECT_EQ(Run(), 0);
    EXPECT_FALSE(ambrin_data.failed);
}

}  // namespace
