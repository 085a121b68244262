#include "flow/authorization.h"

#include "flow/flow_test.h"
#include "vek/err.h"

namespace {

using ambrin_test::FlowTest;
using ambrin_test::JsonAnswer;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

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
