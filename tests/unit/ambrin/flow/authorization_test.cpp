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

// Behaviours of: Authorizations

// Behaviour: Each authorization is fetched by POST-as-GET in the order of the list
// Behaviour: The beginning and each authorization's URL are traced
// Behaviour: Each is logged as authorization_try ahead of its request and authorization_success after it
// Behaviour: Those that are not valid are stored whole, as one compact JSON array
// Behaviour: A valid one is traced as "Challenge already complete" and left out
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

// Behaviour: A valid one is traced as "Challenge already ...
TEST_F(Authorizations, AllValidStoreAnEmptyArray) {
    Answer(1, 200, R"({"status":"valid"})");
    Answer(2, 200, R"({"status":"valid"})");
    EXPECT_TRUE(Autorization(params, kTwo));
    EXPECT_EQ(ambrin_data.challenges, "[]\n");
    EXPECT_THAT(Traces(), Contains("Challenge already complete").Times(2));
}

// Behaviour: The first refusal ends it: nothing more is fetched, the stored ones stay, authorization_fail is
//   logged
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

// Behaviour: The first refusal ends it: nothing more is ...
TEST_F(Authorizations, ErrorMemberIsARefusal) {
    Answer(1, 200, R"({"status":"valid","error":{}})");
    EXPECT_FALSE(Autorization(params, kTwo));
    EXPECT_EQ(ambrin_data.challenges, "old");
}

// Behaviour: The first refusal ends it: nothing more is ...
TEST_F(Authorizations, FailedExchangeIsAFailure) {
    world.FailHttp("POST *", "timed out");
    EXPECT_FALSE(Autorization(params, kTwo));
    EXPECT_THAT(JobLog(), ElementsAre("processing,authorization_try,",
                                      "failed,http_query_error,timed out<br>url: https://ca.test/authz/1"));
}

// Behaviour: An authorization is traced with its URL and logged as tried before it is requested
TEST_F(Authorizations, EachIsTracedAndLoggedBeforeItIsRequested) {
    ambrin_data.acmekey = "no key";
    EXPECT_THROW(Autorization(params, kTwo), vek_err::Error);
    EXPECT_THAT(Traces(),
                ElementsAre("Ambrin begin autorizations", "autorization url 'https://ca.test/authz/1'",
                            "kid '" + ambrin_data.kid + "'"));
    EXPECT_THAT(JobLog(), ElementsAre("processing,authorization_try,"));
}

// Behaviour: An empty list stores an empty array
TEST_F(Authorizations, EmptyListStoresAnEmptyArray) {
    EXPECT_TRUE(Autorization(params, "  "));
    EXPECT_EQ(ambrin_data.challenges, "[]\n");
    EXPECT_THAT(Story(), IsEmpty());
}

// Behaviour: The stored payload is neither sent nor changed
TEST_F(Authorizations, StoredPayloadIsNeitherSentNorChanged) {
    params.payload["a"] = 1;
    Answer(1, 200, "{}");
    EXPECT_TRUE(Autorization(params, "https://ca.test/authz/1"));
    EXPECT_EQ(params.payload["a"].asInt(), 1);
}

// Behaviour: A missing status, or one of another type, counts as not valid
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

// Behaviours of: Answering challenges

// Behaviour: Challenges are answered one after the other, each waited for before the next is sent
// Behaviour: The answer is {} in a run that placed an order, null in one that did not
// Behaviour: What was published for every challenge is removed afterwards, on success and failure alike
// Behaviour: Stored challenges and attempt count are reset afterwards, on success and failure alike
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

// Behaviour: The answer is {} in a run that placed an ...
TEST_F(Answering, RunThatPlacedNoOrderSendsNull) {
    Add(1);
    Answer(1, R"({"status":"valid"})");
    EXPECT_TRUE(Process());
    EXPECT_EQ(Story().at(1), "POST https://ca.test/challenge/1 null");
}

// Behaviour: An error object or a refused request stops the answering
// Behaviour: What was published for every challenge is ...
// Behaviour: Stored challenges and attempt count are reset ...
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

// Behaviour: An error object or a refused request stops ...
TEST_F(Answering, RefusedRequestStops) {
    Add(1);
    Add(2);
    Answer(1, "busy", 503);
    EXPECT_FALSE(Process());
    EXPECT_THAT(Requests(), SizeIs(1));
}

// Behaviour: An unexpected status, and passes that ran out, count as answered
TEST_F(Answering, UnexpectedStatusCountsAsAnswered) {
    Add(1);
    Add(2);
    Answer(1, R"({"status":"invalid"})");
    Answer(2, R"({"status":"valid"})");
    EXPECT_TRUE(Process());
    EXPECT_THAT(JobLog(), ElementsAre("failed,challenge_req_attempt,", "processing,challenge_success,"));
}

// Behaviour: An unexpected status, and passes that ran ...
TEST_F(Answering, PassesThatRunOutCountAsAnswered) {
    Add(1);
    world.AlwaysHttp("POST https://ca.test/challenge/1",
                     [](const std::string&) { return JsonAnswer(200, R"({"status":"pending"})"); });
    EXPECT_TRUE(Process());
    EXPECT_THAT(world.Lines({"sleep"}), SizeIs(60));
    EXPECT_THAT(JobLog(), ElementsAre("failed,challenge_req_attempt,"));
}

// Behaviour: An empty list only cleans up
// Behaviour: Beginning and end are traced, the end on ...
TEST_F(Answering, EmptyListOnlyCleansUp) {
    EXPECT_TRUE(Process());
    EXPECT_THAT(Story(), IsEmpty());
    EXPECT_THAT(Traces(), ElementsAre("Ambrin start challenges", "Ambrin challenge complete"));
    EXPECT_EQ(ambrin_data.challenges, "");
    EXPECT_EQ(ambrin_data.attempt_count, 0);
}

// Behaviour: Beginning and end are traced, the end on failure too
TEST_F(Answering, CompletionIsTracedOnFailureToo) {
    Add(1);
    Answer(1, "", 500);
    Process();
    EXPECT_THAT(Traces(), Contains("Ambrin start challenges").Times(1));
    EXPECT_EQ(Traces().back(), "Ambrin challenge complete");
}

// Behaviour: The end of the answering is traced before anything is cleaned up
TEST_F(Answering, CompletionIsTracedBeforeTheCleanUp) {
    Add(1);
    Answer(1, R"({"status":"valid"})");
    std::string last_trace;
    world.AlwaysPanel("func=ambrin_challenge&*", [&](const std::string&) {
        last_trace = Traces().back();
        return "<doc/>";
    });
    EXPECT_TRUE(Process());
    EXPECT_EQ(last_trace, "Ambrin challenge complete");
}

// Behaviour: The caller's parameters stay as they are
TEST_F(Answering, ParameterMapOfTheCallerStaysAsItIs) {
    Add(1);
    Answer(1, R"({"status":"valid"})");
    const auto before = challenge_params;
    Process();
    EXPECT_EQ(challenge_params, before);
}

// Behaviour: An exception while answering skips the clean-up
TEST_F(Answering, ErrorWhileAnsweringSkipsTheCleanUp) {
    Add(1);
    ambrin_data.acmekey = "no key";
    EXPECT_THROW(Process(), vek_err::Error);
    EXPECT_EQ(ambrin_data.challenges, "old");
    EXPECT_EQ(ambrin_data.attempt_count, 4);
}

// Behaviour: An error of the clean-up travels to the caller, with the job reset already
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
