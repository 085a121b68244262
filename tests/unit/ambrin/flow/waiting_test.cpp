#include "flow/authorization.h"

#include "flow/flow_test.h"
#include "vek/proc.h"

namespace {

using ambrin_test::FlowTest;
using ambrin_test::JsonAnswer;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class Waiting : public FlowTest {
protected:
    Waiting() { params.url = kUrl; }

    void Answer(const std::string& body, const std::string& head = "", int status = 200) {
        world.AnswerHttp("POST " + kUrl, JsonAnswer(status, body, head));
    }

    const std::string kUrl = "https://ca.test/challenge/1";
    const std::string kAction = "POST " + kUrl + " null";
    const std::string kPoll = "POST " + kUrl + " -";
};

// Behaviours of: Waiting for the authority

// Behaviour: The wait is traced with its URL, and failed requests bear the prefix and "_fail"
// Behaviour: A valid object ends the wait and is logged as processing / prefix_success, without a sleep where
//   it is valid at once
TEST_F(Waiting, ValidAtOnceNeedsNoSleep) {
    Answer(R"({"status":"valid"})");
    EXPECT_EQ(WaitToResolve(params, "challenge").json["status"].asString(), "valid");
    EXPECT_THAT(Story(), ElementsAre("nonce", kAction));
    EXPECT_THAT(JobLog(), ElementsAre("processing,challenge_success,"));
    EXPECT_EQ(Traces().front(), "wait for '" + kUrl + "' resolve");
    EXPECT_EQ(params.error_name, "challenge_fail");
}

// Behaviour: The first request carries the payload, every poll is a POST-as-GET to the same URL
// Behaviour: Pending and processing objects are polled after as many seconds as "retry-after" says
TEST_F(Waiting, SleepsAsLongAsTheAuthorityAsks) {
    Answer(R"({"status":"processing"})", "Retry-After: 3\r\n");
    Answer(R"({"status":"valid"})");
    WaitToResolve(params, "challenge");
    EXPECT_THAT(Story(), ElementsAre("nonce", kAction, "sleep 3000", "nonce", kPoll));
    EXPECT_THAT(JobLog(), ElementsAre("processing,challenge_success,"));
}

// Behaviour: Without "retry-after" the delay is one second, whatever an earlier answer asked
TEST_F(Waiting, SleepsOneSecondWhereTheAuthorityAsksForNothing) {
    Answer(R"({"status":"pending"})", "Retry-After: 5\r\n");
    Answer(R"({"status":"processing"})");
    Answer(R"({"status":"valid"})");
    WaitToResolve(params, "cert_order");
    EXPECT_THAT(Story(),
                ElementsAre("nonce", kAction, "sleep 5000", "nonce", kPoll, "sleep 1000", "nonce", kPoll));
    EXPECT_THAT(JobLog(), ElementsAre("processing,cert_order_success,"));
}

// Behaviour: An object that stays pending is polled sixty times, then given up as failed / prefix_req_attempt
TEST_F(Waiting, ObjectThatStaysPendingIsPolledSixtyTimes) {
    world.AlwaysHttp("POST " + kUrl,
                     [](const std::string&) { return JsonAnswer(200, R"({"status":"pending"})"); });
    const AcmeResponse last = WaitToResolve(params, "challenge");
    EXPECT_EQ(last.json["status"].asString(), "pending");
    EXPECT_THAT(world.Lines({"sleep"}), SizeIs(60));
    EXPECT_THAT(world.Lines({"sleep"}), Each("sleep: 1000"));
    EXPECT_THAT(Requests(), SizeIs(61));
    EXPECT_THAT(JobLog(), ElementsAre("failed,challenge_req_attempt,"));
}

// Behaviour: The answer to the sixtieth poll is not looked at, that to the fifty-ninth is
TEST_F(Waiting, AnswerToTheSixtiethPollIsNotLookedAt) {
    int asked = 0;
    world.AlwaysHttp("POST " + kUrl, [&](const std::string&) {
        return JsonAnswer(200, ++asked <= 60 ? R"({"status":"pending"})" : R"({"status":"valid"})");
    });
    EXPECT_EQ(WaitToResolve(params, "challenge").json["status"].asString(), "valid");
    EXPECT_EQ(asked, 61);
    EXPECT_THAT(JobLog(), ElementsAre("failed,challenge_req_attempt,"));
}

// Behaviour: The answer to the sixtieth poll is not looked ...
TEST_F(Waiting, AnswerToTheFiftyNinthPollIsTheLastThatCounts) {
    int asked = 0;
    world.AlwaysHttp("POST " + kUrl, [&](const std::string&) {
        return JsonAnswer(200, ++asked < 60 ? R"({"status":"pending"})" : R"({"status":"valid"})");
    });
    WaitToResolve(params, "challenge");
    EXPECT_EQ(asked, 60);
    EXPECT_THAT(JobLog(), ElementsAre("processing,challenge_success,"));
}

// Behaviour: A refused action or poll is returned at once
// Behaviour: The wait is traced with its URL, and failed ...
TEST_F(Waiting, RefusedActionIsReturnedAtOnce) {
    Answer(R"({"status":"pending","detail":"no"})", "", 403);
    EXPECT_EQ(WaitToResolve(params, "challenge").code, 403);
    EXPECT_THAT(Story(), ElementsAre("nonce", kAction));
    ASSERT_THAT(JobLog(), SizeIs(1));
    EXPECT_TRUE(JobLog()[0].starts_with("failed,challenge_fail,"));
}

// Behaviour: A refused action or poll is returned at once ...
TEST_F(Waiting, RefusedPollIsReturnedAtOnce) {
    Answer(R"({"status":"pending"})");
    world.FailHttp("POST " + kUrl, "timed out");
    EXPECT_EQ(WaitToResolve(params, "challenge").code, -1);
    EXPECT_THAT(JobLog(), ElementsAre("failed,http_query_error,timed out<br>url: " + kUrl));
}

// Behaviour: Any other status gives up at once, without sleep or poll
TEST_F(Waiting, OtherStatusesGiveUpWithoutSleepOrPoll) {
    for (const std::string body : {R"({"status":"ready"})", R"({"status":"invalid"})", R"({"status":""})",
                                   "{}", "not json", R"(["valid"])", R"("valid")", R"({"status":["valid"]})",
                                   R"({"status":7})", "", R"({"status":"Valid"})"}) {
        ambrin_data.log.clear();
        Answer(body, "Retry-After: 9\r\n");
        WaitToResolve(params, "challenge");
        EXPECT_THAT(JobLog(), ElementsAre("failed,challenge_req_attempt,")) << body;
    }
    EXPECT_THAT(world.Lines({"sleep"}), IsEmpty());
    EXPECT_THAT(Requests(), SizeIs(11));
}

// Behaviour: Delays wrap as signed 32-bit milliseconds widened with their sign; a date is no delay
TEST_F(Waiting, DelaysAreComputedInSigned32BitArithmetic) {
    const std::vector<std::pair<std::string, std::string>> delays{
        {"0", "0"},
        {"-1", "18446744073709550616"},
        {"2147483", "2147483000"},
        {"2147484", "18446744071562068320"},
        {"4294968", "704"},
        {"99999999999", "18446744073709550616"},
        {"Wed, 21 Oct 2026 07:28:00 GMT", "0"},
        {"5, 6", "5000"},
        {"", "0"},
    };
    for (const auto& [header, milliseconds] : delays) {
        world.ForgetCalls();
        Answer(R"({"status":"pending"})", "Retry-After: " + header + "\r\n");
        Answer(R"({"status":"valid"})");
        WaitToResolve(params, "challenge");
        EXPECT_THAT(world.Lines({"sleep"}), ElementsAre("sleep: " + milliseconds)) << header;
    }
}

// Behaviour: An interrupted sleep ends the run
TEST_F(Waiting, InterruptedSleepEndsTheRun) {
    Answer(R"({"status":"pending"})");
    world.FailAt("sleep", 1, vek_double::Failure::kInterrupted);
    EXPECT_THROW(WaitToResolve(params, "challenge"), vek_proc::Interrupted);
    EXPECT_THAT(JobLog(), IsEmpty());
}

}  // namespace
