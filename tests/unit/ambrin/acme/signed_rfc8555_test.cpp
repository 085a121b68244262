#include "acme/signed.h"

#include "support/job_test.h"

namespace {

using ambrin_test::JobTest;
using ambrin_test::JsonAnswer;
using ambrin_test::SignedRequest;
using testing::SizeIs;

const std::string kUrl = "https://ca.test/object";

class SignedByTheLetter : public JobTest {
protected:
    SignedByTheLetter() {
        StoreAccount();
        AnswerNonces();
        params.url = kUrl;
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

}  // namespace
