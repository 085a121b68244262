#include "flow/account.h"
#include "flow/authorization.h"
#include "flow/finalization.h"
#include "support/issuance.h"

// The flow's requests where they differ from those in the style classic.
namespace {

using ambrin_test::JobTest;
using ambrin_test::JsonAnswer;
using ambrin_test::kFinalizeUrl;
using ambrin_test::kOrderUrl;
using ambrin_test::kStoredKid;
using testing::ElementsAre;
using testing::SizeIs;

class FlowByTheLetter : public JobTest {
protected:
    FlowByTheLetter() {
        StoreAccount();
        AnswerNonces();
        ambrin_data.finalize = kFinalizeUrl;
        ambrin_data.finalize_check = kOrderUrl;
    }
};

// Behaviours of: The style rfc8555

// Behaviour: In the style rfc8555 an account is checked by POST-as-GET, and the caller's payload stays
TEST_F(FlowByTheLetter, AccountIsFetched) {
    params.payload["a"] = 1;
    world.AnswerHttp("POST " + kStoredKid, JsonAnswer(200, R"({"status":"valid"})"));
    EXPECT_TRUE(CheckAccount(params));
    world.AnswerHttp("POST " + kStoredKid, JsonAnswer(200, R"({"status":"deactivated"})"));
    EXPECT_FALSE(CheckAccount(params));
    EXPECT_THAT(Story(),
                ElementsAre("nonce", "POST " + kStoredKid + " -", "nonce", "POST " + kStoredKid + " -"));
    EXPECT_EQ(params.payload["a"].asInt(), 1);
}

// Behaviour: In the style rfc8555 a challenge is answered with {}, by a run that placed no order, too, and
// polled where
//   it was answered
TEST_F(FlowByTheLetter, ChallengeIsAnsweredWithAnEmptyObject) {
    const std::string url = "https://ca.test/challenge/1";
    world.AlwaysPanel("func=ambrin_challenge&*", [](const std::string&) { return "<doc/>"; });
    for (const Json::Value& payload : {Json::Value(), Json::Value(Json::arrayValue)}) {
        params.payload = payload;
        world.ForgetCalls();
        world.AnswerHttp("POST " + url, JsonAnswer(200, R"({"status":"pending"})"));
        world.AnswerHttp("POST " + url, JsonAnswer(200, R"({"status":"valid"})"));
        std::list<ChallengeData> challenges{{"token", url, "a.example", "authz", "content"}};
        std::map<std::string, std::string> challenge_params{{"type", "http"}};
        EXPECT_TRUE(ProcessChallenges(challenges, params, challenge_params));
        EXPECT_THAT(world.Lines({"http", "sleep"}),
                    ElementsAre("http: GET https://ca.test/new-nonce", "http: POST " + url, "sleep: 1000",
                                "http: GET https://ca.test/new-nonce", "http: POST " + url));
        EXPECT_EQ(Requests().at(0).payload, "{}");
        EXPECT_EQ(Requests().at(1).payload, "");
    }
}

// Behaviour: In the style rfc8555 an order that is being finalized is polled at its own URL
TEST_F(FlowByTheLetter, OrderIsPolledAtItsOwnUrl) {
    world.AnswerHttp("POST " + kFinalizeUrl,
                     JsonAnswer(200, R"({"status":"processing"})", "Retry-After: 2\r\n"));
    world.AnswerHttp("POST " + kOrderUrl, JsonAnswer(200, R"({"status":"processing"})",
                                                     "Retry-After: Sat, 01 Jun 2030 12:00:05 GMT\r\n"));
    world.AnswerHttp("POST " + kOrderUrl, JsonAnswer(200, R"({"status":"valid","certificate":"C"})"));
    EXPECT_EQ(GetCertOrderUrl(params, "DER"), "C");
    EXPECT_THAT(Story(),
                ElementsAre("nonce", "POST " + kFinalizeUrl + " {\"csr\":\"DER\"}", "sleep 2000", "nonce",
                            "POST " + kOrderUrl + " -", "sleep 3000", "nonce", "POST " + kOrderUrl + " -"));
    EXPECT_THAT(JobLog(), ElementsAre("processing,cert_order_success,"));
}

// Behaviour: In the style rfc8555 an order that became valid at once is not polled
TEST_F(FlowByTheLetter, ValidOrderIsNotPolled) {
    world.AnswerHttp("POST " + kFinalizeUrl, JsonAnswer(200, R"({"status":"valid","certificate":"C"})"));
    EXPECT_EQ(GetCertOrderUrl(params, "DER"), "C");
    EXPECT_THAT(Requests(), SizeIs(1));
}

// Behaviour: In the style rfc8555 an order without a URL of its own is polled at its finalize URL
TEST_F(FlowByTheLetter, OrderWithoutAUrlIsPolledWhereItWasFinalized) {
    ambrin_data.finalize_check.clear();
    world.AnswerHttp("POST " + kFinalizeUrl, JsonAnswer(200, R"({"status":"processing"})"));
    world.AnswerHttp("POST " + kFinalizeUrl, JsonAnswer(200, R"({"status":"valid","certificate":"C"})"));
    EXPECT_EQ(GetCertOrderUrl(params, "DER"), "C");
}

// Behaviour: In the style rfc8555 an order that a poll shows as invalid gives nothing, logged as
// cert_order_fail where
//   the authority says why
TEST_F(FlowByTheLetter, OrderThatFailsWhileItIsPolledGivesNothing) {
    world.AnswerHttp("POST " + kFinalizeUrl, JsonAnswer(200, R"({"status":"processing"})"));
    world.AnswerHttp("POST " + kOrderUrl,
                     JsonAnswer(200, R"({"status":"invalid","error":{"status":403,"detail":"CAA"}})"));
    EXPECT_EQ(GetCertOrderUrl(params, "DER"), "");
    EXPECT_THAT(JobLog(),
                ElementsAre("failed,cert_order_fail,<p><b>Return code:</b> 403</p></br><p><b>Details:</b> "
                            "CAA</p>"));
}

}  // namespace
