#include "flow/authorization.h"

#include "flow/flow_test.h"
#include "vek/err.h"

namespace {

using ambrin_test::FlowTest;
using ambrin_test::JsonAnswer;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

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

}  // namespace
