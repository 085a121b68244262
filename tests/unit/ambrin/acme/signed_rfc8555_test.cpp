#include "acme/signed.h"

#include "support/job_test.h"

namespace {

using ambrin_test::JobTest;
using ambrin_test::JsonAnswer;
using ambrin_test::SignedRequest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const std::string kUrl = "https://ca.test/object";

const std::string kBadNonce =
    R"({"type":"urn:ietf:params:acme:error:badNonce","status":400,"detail":"another, please"})";

class SignedByTheLetter : public JobTest {
protected:
    SignedByTheLetter() {
        StoreAccount();
        AnswerNonces();
        params.url = kUrl;
    }

    /// One more answer that refuses the nonce, with another one.
    void RefuseNonce(const std::string& further_nonce) {
        world.AnswerHttp("POST *", JsonAnswer(400, kBadNonce, "Replay-Nonce: " + further_nonce + "\r\n"));
    }

    std::vector<std::string> NoncesUsed() const {
        std::vector<std::string> nonces;
        for (const SignedRequest& request : Requests()) nonces.push_back(request.header["nonce"].asString());
        return nonces;
    }

    SignedRequest OnlyRequest() const {
        const auto requests = Requests();
        EXPECT_THAT(requests, SizeIs(1));
        return requests.at(0);
    }
};

// Behaviours of: The style rfc8555

// Behaviour: In the style rfc8555 protected header and payload are compact JSON without a line feed, and are
//   signed so
TEST_F(SignedByTheLetter, EncodedPartsEndWithTheirBrace) {
    ambrin_data.kid = "K";
    params.payload["a"] = "x";
    world.AnswerHttp("POST *", JsonAnswer(200, "{}"));
    AcmePost(params, false);
    EXPECT_EQ(OnlyRequest().protected_text,
              R"({"alg":"RS256","kid":"K","nonce":"nonce-1","url":")" + kUrl + "\"}");
    EXPECT_EQ(OnlyRequest().payload, R"({"a":"x"})");
    EXPECT_EQ(OnlyRequest().signature,
              vek_double::FakeSignature(ambrin_data.acmekey, OnlyRequest().signing_input));
}

// Behaviour: In the style rfc8555 a request whose nonce is refused goes out once more, signed anew, with the
// nonce
//   that the refusal brings; the job log has nothing of it
TEST_F(SignedByTheLetter, RefusedNonceCostsOneMoreTry) {
    params.payload["a"] = "x";
    RefuseNonce("further");
    world.AnswerHttp("POST *", JsonAnswer(201, R"({"status":"valid"})"));
    EXPECT_EQ(AcmePost(params, false).code, 201);
    EXPECT_THAT(NoncesUsed(), ElementsAre("nonce-1", "further"));
    EXPECT_THAT(Story(),
                ElementsAre("nonce", "POST " + kUrl + R"( {"a":"x"})", "POST " + kUrl + R"( {"a":"x"})"));
    EXPECT_EQ(Requests()[1].signature,
              vek_double::FakeSignature(ambrin_data.acmekey, Requests()[1].signing_input));
    EXPECT_THAT(JobLog(), IsEmpty());
    EXPECT_THAT(Traces(), Contains("nonce refused, one more try").Times(1));
}

// Behaviour: In the style rfc8555 the third refusal of a nonce is the request's outcome, logged once
TEST_F(SignedByTheLetter, ThirdRefusedNonceIsTheOutcome) {
    params.error_name = "order_failed";
    RefuseNonce("second");
    RefuseNonce("third");
    RefuseNonce("fourth");
    EXPECT_EQ(AcmePost(params, true).code, 400);
    EXPECT_THAT(NoncesUsed(), ElementsAre("nonce-1", "second", "third"));
    EXPECT_THAT(JobLog(),
                ElementsAre("failed,order_failed,<p><b>Return code:</b> 400</p></br><p><b>Details:</b> "
                            "another, please</p>"));
}

// Behaviour: In the style rfc8555 no other refusal, and none that brings no nonce, is followed by one more
// try
TEST_F(SignedByTheLetter, OtherRefusalsAreFinal) {
    const std::string nonce = "Replay-Nonce: further\r\n";
    for (const vek_double::HttpAnswer& answer :
         {JsonAnswer(400, kBadNonce),
          JsonAnswer(400, R"({"type":"urn:ietf:params:acme:error:malformed"})", nonce),
          JsonAnswer(400, R"({"type":["urn:ietf:params:acme:error:badNonce"]})", nonce),
          JsonAnswer(400, "badNonce", nonce), JsonAnswer(200, kBadNonce, nonce)}) {
        world.AnswerHttp("POST *", answer);
        EXPECT_EQ(AcmePost(params, true).code, answer.status);
    }
    EXPECT_THAT(Requests(), SizeIs(5));
    EXPECT_THAT(JobLog(), SizeIs(4));
}

// Behaviour: In the style rfc8555 a try that fails as an exchange ends the request, logged as
// http_query_error
TEST_F(SignedByTheLetter, FailedExchangeOfAFurtherTryEndsTheRequest) {
    RefuseNonce("further");
    world.FailHttp("POST *", "timed out");
    EXPECT_EQ(AcmePost(params, true).code, -1);
    EXPECT_THAT(JobLog(), ElementsAre("failed,http_query_error,timed out<br>url: " + kUrl));
}

}  // namespace
