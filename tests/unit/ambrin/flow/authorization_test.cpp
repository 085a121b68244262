#include "flow/authorization.h"

#include "support/job_test.h"
#include "vek/err.h"
#include "vek/proc.h"

namespace {

using ambrin_test::JobTest;
using ambrin_test::JsonAnswer;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class FlowTest : public JobTest {
protected:
    FlowTest() {
        StoreAccount();
        AnswerNonces();
        ambrin_data.challenges = "old";
    }
};

// --- Autorization

class Authorizations : public FlowTest {
protected:
    void Answer(int number, int status, const std::string& body) {
        world.AnswerHttp("POST https://ca.test/authz/" + std::to_string(number), JsonAnswer(status, body));
    }
};

const std::string kTwo = "https://ca.test/authz/1 https://ca.test/authz/2";

TEST_F(Authorizations, OnlyThoseNotYetValidAreKept) {
    Answer(1, 200, R"({"status":"pending","identifier":{"value":"a.example"}})");
    Answer(2, 200, R"({"status":"valid"})");
    EXPECT_TRUE(Autorization(params, kTwo));
    EXPECT_EQ(ambrin_data.challenges,
              "[{\"identifier\":{\"value\":\"a.example\"},\"status\":\"pending\"}]\n");
    EXPECT_THAT(Story(), ElementsAre("nonce", "POST https://ca.test/authz/1 -", "nonce",
                                     "POST https://ca.test/authz/2 -"));
    EXPECT_THAT(JobLog(), ElementsAre("processing,authorization_try,", "processing,authorization_success,",
                                      "processing,authorization_try,", "processing,authorization_success,"));
    EXPECT_EQ(Traces().front(), "Ambrin begin autorizations");
    EXPECT_THAT(Traces(), Contains("autorization url 'https://ca.test/authz/2'").Times(1));
    EXPECT_THAT(Traces(), Contains("Challenge already complete").Times(1));
    EXPECT_EQ(params.error_name, "authorization_fail");
}

TEST_F(Authorizations, AllValidStoreAnEmptyArray) {
    Answer(1, 200, R"({"status":"valid"})");
    Answer(2, 200, R"({"status":"valid"})");
    EXPECT_TRUE(Autorization(params, kTwo));
    EXPECT_EQ(ambrin_data.challenges, "[]\n");
    EXPECT_THAT(Traces(), Contains("Challenge already complete").Times(2));
}

TEST_F(Authorizations, RefusedOneLeavesTheStoredOnesAlone) {
    Answer(1, 200, R"({"status":"pending"})");
    Answer(2, 404, R"({"status":404,"detail":"gone"})");
    EXPECT_FALSE(Autorization(params, kTwo + " https://ca.test/authz/3"));
    EXPECT_EQ(ambrin_data.challenges, "old");
    EXPECT_THAT(JobLog(),
                ElementsAre("processing,authorization_try,", "processing,authorization_success,",
                            "processing,authorization_try,",
                            "failed,authorization_fail,<p><b>Return code:</b> 404</p></br><p><b>Details:</b> "
                            "gone</p>"));
}

TEST_F(Authorizations, ErrorMemberIsARefusal) {
    Answer(1, 200, R"({"status":"valid","error":{}})");
    EXPECT_FALSE(Autorization(params, kTwo));
    EXPECT_EQ(ambrin_data.challenges, "old");
}

TEST_F(Authorizations, FailedExchangeIsAFailure) {
    world.FailHttp("POST *", "timed out");
    EXPECT_FALSE(Autorization(params, kTwo));
    EXPECT_THAT(JobLog(), ElementsAre("processing,authorization_try,",
                                      "failed,http_query_error,timed out<br>url: https://ca.test/authz/1"));
}

TEST_F(Authorizations, EmptyListStoresAnEmptyArray) {
    EXPECT_TRUE(Autorization(params, "  "));
    EXPECT_EQ(ambrin_data.challenges, "[]\n");
    EXPECT_THAT(Story(), IsEmpty());
}

TEST_F(Authorizations, StoredPayloadIsNeitherSentNorChanged) {
    params.payload["a"] = 1;
    Answer(1, 200, "{}");
    EXPECT_TRUE(Autorization(params, "https://ca.test/authz/1"));
    EXPECT_EQ(params.payload["a"].asInt(), 1);
}

TEST_F(Authorizations, StatusOfAnotherTypeCountsAsNotValid) {
    for (const std::string body :
         {R"({"status":7})", R"({"status":["valid"]})", R"({"status":null})", "{}", "[]", "7"}) {
        Answer(1, 200, body);
        EXPECT_TRUE(Autorization(params, "https://ca.test/authz/1"));
        EXPECT_EQ(ambrin_data.challenges, "[" + body + "]\n");
    }
    Answer(1, 200, "not json");
    EXPECT_TRUE(Autorization(params, "https://ca.test/authz/1"));
    EXPECT_EQ(ambrin_data.challenges, "[null]\n");
}

// --- WaitToResolve

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

TEST_F(Waiting, ValidAtOnceNeedsNoSleep) {
    Answer(R"({"status":"valid"})");
    EXPECT_EQ(WaitToResolve(params, "challenge").json["status"].asString(), "valid");
    EXPECT_THAT(Story(), ElementsAre("nonce", kAction));
    EXPECT_THAT(JobLog(), ElementsAre("processing,challenge_success,"));
    EXPECT_EQ(Traces().front(), "wait for '" + kUrl + "' resolve");
    EXPECT_EQ(params.error_name, "challenge_fail");
}

TEST_F(Waiting, SleepsAsLongAsTheAuthorityAsks) {
    Answer(R"({"status":"processing"})", "Retry-After: 3\r\n");
    Answer(R"({"status":"valid"})");
    WaitToResolve(params, "challenge");
    EXPECT_THAT(Story(), ElementsAre("nonce", kAction, "sleep 3000", "nonce", kPoll));
    EXPECT_THAT(JobLog(), ElementsAre("processing,challenge_success,"));
}

TEST_F(Waiting, SleepsOneSecondWhereTheAuthorityAsksForNothing) {
    Answer(R"({"status":"pending"})", "Retry-After: 5\r\n");
    Answer(R"({"status":"processing"})");
    Answer(R"({"status":"valid"})");
    WaitToResolve(params, "cert_order");
    EXPECT_THAT(Story(),
                ElementsAre("nonce", kAction, "sleep 5000", "nonce", kPoll, "sleep 1000", "nonce", kPoll));
    EXPECT_THAT(JobLog(), ElementsAre("processing,cert_order_success,"));
}

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

TEST_F(Waiting, AnswerToTheSixtiethPollIsNotLookedAt) {
    int asked = 0;
    world.AlwaysHttp("POST " + kUrl, [&](const std::string&) {
        return JsonAnswer(200, ++asked <= 60 ? R"({"status":"pending"})" : R"({"status":"valid"})");
    });
    EXPECT_EQ(WaitToResolve(params, "challenge").json["status"].asString(), "valid");
    EXPECT_EQ(asked, 61);
    EXPECT_THAT(JobLog(), ElementsAre("failed,challenge_req_attempt,"));
}

TEST_F(Waiting, AnswerToTheFiftyNinthPollIsTheLastThatCounts) {
    int asked = 0;
    world.AlwaysHttp("POST " + kUrl, [&](const std::string&) {
        return JsonAnswer(200, ++asked < 60 ? R"({"status":"pending"})" : R"({"status":"valid"})");
    });
    WaitToResolve(params, "challenge");
    EXPECT_EQ(asked, 60);
    EXPECT_THAT(JobLog(), ElementsAre("processing,challenge_success,"));
}

TEST_F(Waiting, RefusedActionIsReturnedAtOnce) {
    Answer(R"({"status":"pending","detail":"no"})", "", 403);
    EXPECT_EQ(WaitToResolve(params, "challenge").code, 403);
    EXPECT_THAT(Story(), ElementsAre("nonce", kAction));
    ASSERT_THAT(JobLog(), SizeIs(1));
    EXPECT_TRUE(JobLog()[0].starts_with("failed,challenge_fail,"));
}

TEST_F(Waiting, RefusedPollIsReturnedAtOnce) {
    Answer(R"({"status":"pending"})");
    world.FailHttp("POST " + kUrl, "timed out");
    EXPECT_EQ(WaitToResolve(params, "challenge").code, -1);
    EXPECT_THAT(JobLog(), ElementsAre("failed,http_query_error,timed out<br>url: " + kUrl));
}

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

TEST_F(Waiting, InterruptedSleepEndsTheRun) {
    Answer(R"({"status":"pending"})");
    world.FailAt("sleep", 1, vek_double::Failure::kInterrupted);
    EXPECT_THROW(WaitToResolve(params, "challenge"), vek_proc::Interrupted);
    EXPECT_THAT(JobLog(), IsEmpty());
}

// --- ProcessChallenges

class Answering : public FlowTest {
protected:
    Answering() {
        ambrin_data.attempt_count = 4;
        challenge_params = {{"user", "ann"}, {"type", "http"}, {"domain", "a.example"}, {"thumbprint", "T"}};
        world.AlwaysPanel("func=ambrin_challenge&*", [](const std::string&) { return "<doc/>"; });
    }

    void Add(int number) {
        const std::string n = std::to_string(number);
        challenges.push_back(
            {"token" + n, "https://ca.test/challenge/" + n, "a.example", "authz" + n, "content" + n});
    }

    void Answer(int number, const std::string& body, int status = 200) {
        world.AnswerHttp("POST https://ca.test/challenge/" + std::to_string(number),
                         JsonAnswer(status, body));
    }

    static std::string Removal(int number) {
        const std::string n = std::to_string(number);
        return "panel func=ambrin_challenge&action=delete&user_name=ann&file_name=token" + n +
               "&content=content" + n;
    }

    bool Process() { return ProcessChallenges(challenges, params, challenge_params); }

    std::list<ChallengeData> challenges;
    std::map<std::string, std::string> challenge_params;
};

TEST_F(Answering, EachIsWaitedForBeforeTheNextIsSent) {
    Add(1);
    Add(2);
    params.payload["identifiers"] = Json::Value(Json::arrayValue);
    Answer(1, R"({"status":"pending"})");
    Answer(1, R"({"status":"valid"})");
    Answer(2, R"({"status":"valid"})");
    EXPECT_TRUE(Process());
    EXPECT_THAT(Story(), ElementsAre("nonce", "POST https://ca.test/challenge/1 {}", "sleep 1000", "nonce",
                                     "POST https://ca.test/challenge/1 -", "nonce",
                                     "POST https://ca.test/challenge/2 {}", Removal(1), Removal(2)));
    EXPECT_THAT(JobLog(), ElementsAre("processing,challenge_success,", "processing,challenge_success,"));
    EXPECT_EQ(ambrin_data.challenges, "");
    EXPECT_EQ(ambrin_data.attempt_count, 0);
    EXPECT_THAT(challenges, SizeIs(2));
}

TEST_F(Answering, RunThatPlacedNoOrderSendsNull) {
    Add(1);
    Answer(1, R"({"status":"valid"})");
    EXPECT_TRUE(Process());
    EXPECT_EQ(Story().at(1), "POST https://ca.test/challenge/1 null");
}

TEST_F(Answering, FailedValidationStopsAndCleansUpAll) {
    Add(1);
    Add(2);
    Answer(1, R"({"status":"invalid","error":{"status":403,"detail":"unauthorized"}})");
    EXPECT_FALSE(Process());
    EXPECT_THAT(Story(),
                ElementsAre("nonce", "POST https://ca.test/challenge/1 null", Removal(1), Removal(2)));
    EXPECT_THAT(JobLog(),
                ElementsAre("failed,challenge_fail,<p><b>Return code:</b> 403</p></br><p><b>Details:</b> "
                            "unauthorized</p>"));
    EXPECT_EQ(ambrin_data.challenges, "");
    EXPECT_EQ(ambrin_data.attempt_count, 0);
}

TEST_F(Answering, RefusedRequestStops) {
    Add(1);
    Add(2);
    Answer(1, "busy", 503);
    EXPECT_FALSE(Process());
    EXPECT_THAT(Requests(), SizeIs(1));
}

TEST_F(Answering, UnexpectedStatusCountsAsAnswered) {
    Add(1);
    Add(2);
    Answer(1, R"({"status":"invalid"})");
    Answer(2, R"({"status":"valid"})");
    EXPECT_TRUE(Process());
    EXPECT_THAT(JobLog(), ElementsAre("failed,challenge_req_attempt,", "processing,challenge_success,"));
}

TEST_F(Answering, PassesThatRunOutCountAsAnswered) {
    Add(1);
    world.AlwaysHttp("POST https://ca.test/challenge/1",
                     [](const std::string&) { return JsonAnswer(200, R"({"status":"pending"})"); });
    EXPECT_TRUE(Process());
    EXPECT_THAT(world.Lines({"sleep"}), SizeIs(60));
    EXPECT_THAT(JobLog(), ElementsAre("failed,challenge_req_attempt,"));
}

TEST_F(Answering, EmptyListOnlyCleansUp) {
    EXPECT_TRUE(Process());
    EXPECT_THAT(Story(), IsEmpty());
    EXPECT_THAT(Traces(), ElementsAre("Ambrin start challenges", "Ambrin challenge complete"));
    EXPECT_EQ(ambrin_data.challenges, "");
    EXPECT_EQ(ambrin_data.attempt_count, 0);
}

TEST_F(Answering, CompletionIsTracedOnFailureToo) {
    Add(1);
    Answer(1, "", 500);
    Process();
    EXPECT_THAT(Traces(), Contains("Ambrin start challenges").Times(1));
    EXPECT_EQ(Traces().back(), "Ambrin challenge complete");
}

TEST_F(Answering, ParameterMapOfTheCallerStaysAsItIs) {
    Add(1);
    Answer(1, R"({"status":"valid"})");
    const auto before = challenge_params;
    Process();
    EXPECT_EQ(challenge_params, before);
}

TEST_F(Answering, ErrorWhileAnsweringSkipsTheCleanUp) {
    Add(1);
    ambrin_data.acmekey = "no key";
    EXPECT_THROW(Process(), vek_err::Error);
    EXPECT_EQ(ambrin_data.challenges, "old");
    EXPECT_EQ(ambrin_data.attempt_count, 4);
}

TEST_F(Answering, ErrorOfTheCleanUpTravelsToTheCaller) {
    Add(1);
    Answer(1, R"({"status":"valid"})");
    world.AlwaysPanel("func=ambrin_challenge&*", [](const std::string&) -> std::string {
        throw vek_err::Error::Reported("io", "read-only file system");
    });
    EXPECT_THROW(Process(), vek_err::Error);
    EXPECT_EQ(ambrin_data.challenges, "");
    EXPECT_EQ(ambrin_data.attempt_count, 0);
}

}  // namespace
