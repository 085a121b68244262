#include "acme/response.h"
#include "acme/signed.h"
#include "acme/unsigned.h"
#include "challenges/challenge_list.h"
#include "flow/account.h"
#include "flow/authorization.h"
#include "flow/finalization.h"
#include "flow/order.h"
#include "support/job_test.h"

// The examples that RFC 8555 prints, as an authority that follows them to the letter answers.
namespace {

using ambrin_test::FakeDigestText;
using ambrin_test::FakeJwk;
using ambrin_test::JobTest;
using testing::ElementsAre;
using testing::SizeIs;

const std::string kExample = "https://example.com/acme/";

/// A whole response as it is printed; the RFC's lines end with a line feed alone here.
vek_double::HttpAnswer Printed(int status, const std::string& head, const std::string& body) {
    return {status, "", "", "HTTP/1.1 " + std::to_string(status) + "\n" + head + "\n" + body + "\n"};
}

// section 7.1.1
const std::string kDirectory = R"({
  "newNonce": "https://example.com/acme/new-nonce",
  "newAccount": "https://example.com/acme/new-account",
  "newOrder": "https://example.com/acme/new-order",
  "newAuthz": "https://example.com/acme/new-authz",
  "revokeCert": "https://example.com/acme/revoke-cert",
  "keyChange": "https://example.com/acme/key-change",
  "meta": {
    "termsOfService": "https://example.com/acme/terms/2017-5-30",
    "website": "https://www.example.com/",
    "caaIdentities": ["example.com"],
    "externalAccountRequired": false
  }
})";

// section 7.1.2
const std::string kAccount = R"({
  "status": "valid",
  "contact": [
    "mailto:cert-admin@example.org",
    "mailto:admin@example.org"
  ],
  "termsOfServiceAgreed": true,
  "orders": "https://example.com/acme/orders/rzGoeA"
})";

// section 7.4
const std::string kPendingOrder = R"({
  "status": "pending",
  "expires": "2016-01-05T14:09:07.99Z",
  "notBefore": "2016-01-01T00:00:00Z",
  "notAfter": "2016-01-08T00:00:00Z",
  "identifiers": [
    { "type": "dns", "value": "www.example.org" },
    { "type": "dns", "value": "example.org" }
  ],
  "authorizations": [
    "https://example.com/acme/authz/PAniVnsZcis",
    "https://example.com/acme/authz/r4HqLzrSrpI"
  ],
  "finalize": "https://example.com/acme/order/TOlocE8rfgo/finalize"
})";

// section 7.1.3
const std::string kValidOrder = R"({
  "status": "valid",
  "expires": "2016-01-20T14:09:07.99Z",
  "identifiers": [
    { "type": "dns", "value": "www.example.org" },
    { "type": "dns", "value": "example.org" }
  ],
  "notBefore": "2016-01-01T00:00:00Z",
  "notAfter": "2016-01-08T00:00:00Z",
  "authorizations": [
    "https://example.com/acme/authz/PAniVnsZcis",
    "https://example.com/acme/authz/r4HqLzrSrpI"
  ],
  "finalize": "https://example.com/acme/order/TOlocE8rfgo/finalize",
  "certificate": "https://example.com/acme/cert/jWCdfHVGY2M"
})";

// section 7.5
const std::string kPendingAuthorization = R"({
  "status": "pending",
  "expires": "2016-01-02T14:09:30Z",
  "identifier": { "type": "dns", "value": "www.example.org" },
  "challenges": [
    {
      "type": "http-01",
      "url": "https://example.com/acme/chall/prV_B7yEyA4",
      "token": "DGyRejmCefe7v4NfDGDKfA"
    },
    {
      "type": "dns-01",
      "url": "https://example.com/acme/chall/Rg5dV14Gh1Q",
      "token": "DGyRejmCefe7v4NfDGDKfA"
    }
  ]
})";

// section 7.1.4
const std::string kValidAuthorization = R"({
  "status": "valid",
  "expires": "2018-09-09T14:09:01.13Z",
  "identifier": { "type": "dns", "value": "www.example.org" },
  "challenges": [
    {
      "url": "https://example.com/acme/chall/prV_B7yEyA4",
      "type": "http-01",
      "status": "valid",
      "token": "DGyRejmCefe7v4NfDGDKfA",
      "validated": "2014-12-01T12:05:58.16Z"
    }
  ],
  "wildcard": false
})";

// section 6.7.1
const std::string kProblem = R"({
  "type": "urn:ietf:params:acme:error:malformed",
  "detail": "Some of the identifiers requested were rejected",
  "subproblems": [
    {
      "type": "urn:ietf:params:acme:error:malformed",
      "detail": "Invalid underscore in DNS name \"_example.org\"",
      "identifier": { "type": "dns", "value": "_example.org" }
    },
    {
      "type": "urn:ietf:params:acme:error:rejectedIdentifier",
      "detail": "This CA will not issue for \"example.net\"",
      "identifier": { "type": "dns", "value": "example.net" }
    }
  ]
})";

class Rfc8555Example : public JobTest {
protected:
    Rfc8555Example() {
        StoreAccount();
        Json::Reader().parse(kDirectory, params.directory);
        world.AlwaysHttp("GET " + kExample + "new-nonce", [](const std::string&) {
            return Printed(200, "Replay-Nonce: oFvnlFP1wIhRlYS2jTaXbA\nCache-Control: no-store\n", "");
        });
    }
};

// Behaviours of: Any authority

// Behaviour: The examples that RFC 8555 prints are understood: directory, nonce, account
TEST_F(Rfc8555Example, DirectoryNamesItsResources) {
    params.directory.clear();
    world.AnswerHttp("GET " AMBRIN_DIRECTORY_URL,
                     Printed(200, "Content-Type: application/json\n", kDirectory));
    EXPECT_EQ(GetDirectory(params).code, 200);
    EXPECT_EQ(params.directory["newOrder"].asString(), kExample + "new-order");
    EXPECT_EQ(GetNonce(params), "oFvnlFP1wIhRlYS2jTaXbA");
}

// Behaviour: The examples that RFC 8555 prints are understood ...
TEST_F(Rfc8555Example, NewAccountIsAskedForWithTheKeyAndGivesItsUrl) {
    AnswerKeyDumps();
    world.AnswerHttp("POST " + kExample + "new-account",
                     Printed(201,
                             "Content-Type: application/json\nReplay-Nonce: D8s4D2mLs8Vn-goWuPQeKA\n"
                             "Link: <https://example.com/acme/directory>;rel=\"index\"\n"
                             "Location: https://example.com/acme/acct/evOfKhNU60wg\n",
                             kAccount));
    EXPECT_TRUE(Registration(params));
    EXPECT_EQ(ambrin_data.kid, kExample + "acct/evOfKhNU60wg");
    const auto request = Requests().at(0);
    EXPECT_EQ(request.header.getMemberNames(), (std::vector<std::string>{"alg", "jwk", "nonce", "url"}));
    EXPECT_EQ(request.header["nonce"].asString(), "oFvnlFP1wIhRlYS2jTaXbA");
    EXPECT_EQ(request.header["url"].asString(), kExample + "new-account");
    EXPECT_EQ(request.payload, "{\"termsOfServiceAgreed\":true}\n");
}

// Behaviour: The examples that RFC 8555 prints are understood ...
TEST_F(Rfc8555Example, AccountIsValid) {
    world.AnswerHttp("POST " + ambrin_data.kid, Printed(200, "", kAccount));
    EXPECT_TRUE(CheckAccount(params));
}

// Behaviour: So are its order, authorization and challenge
TEST_F(Rfc8555Example, NewOrderIsKeptWithItsUrls) {
    ambrin_data.aliases = "www.example.org example.org";
    world.AnswerHttp("POST " + kExample + "new-order",
                     Printed(201,
                             "Replay-Nonce: MYAuvOpaoIiywTezizk5vw\n"
                             "Link: <https://example.com/acme/directory>;rel=\"index\"\n"
                             "Location: https://example.com/acme/order/TOlocE8rfgo\n",
                             kPendingOrder));
    EXPECT_EQ(NewOrder(params), kExample + "authz/PAniVnsZcis " + kExample + "authz/r4HqLzrSrpI");
    EXPECT_EQ(ambrin_data.finalize_check, kExample + "order/TOlocE8rfgo");
    EXPECT_EQ(ambrin_data.finalize, kExample + "order/TOlocE8rfgo/finalize");
    EXPECT_EQ(Requests().at(0).header.getMemberNames(),
              (std::vector<std::string>{"alg", "kid", "nonce", "url"}));
}

// Behaviour: So are its order, authorization and challenge ...
TEST_F(Rfc8555Example, PendingAuthorizationGivesTheChallengeOfTheJobsKind) {
    AnswerDigests();
    const std::string urls = kExample + "authz/PAniVnsZcis " + kExample + "authz/r4HqLzrSrpI";
    world.AnswerHttp(
        "POST " + kExample + "authz/PAniVnsZcis",
        Printed(200, "Link: <https://example.com/acme/directory>;rel=\"index\"\n", kPendingAuthorization));
    world.AnswerHttp("POST " + kExample + "authz/r4HqLzrSrpI", Printed(200, "", kValidAuthorization));
    EXPECT_TRUE(Autorization(params, urls));
    const std::string authz = "DGyRejmCefe7v4NfDGDKfA." + FakeDigestText(FakeJwk(ambrin_data.acmekey));
    for (const std::string type : {"http", "dns"}) {
        ambrin_data.check_type = type;
        std::map<std::string, std::string> map;
        std::list<ChallengeData> challenges;
        ASSERT_TRUE(PrepareChallengesList(map, challenges));
        ASSERT_THAT(challenges, SizeIs(1));
        EXPECT_EQ(challenges.front().domain, "www.example.org");
        EXPECT_EQ(challenges.front().url,
                  kExample + (type == "http" ? "chall/prV_B7yEyA4" : "chall/Rg5dV14Gh1Q"));
        EXPECT_EQ(challenges.front().content, type == "http" ? authz : FakeDigestText(authz));
    }
}

// Behaviour: So are its order, authorization and challenge ...
TEST_F(Rfc8555Example, ValidChallengeIsResolved) {
    params.url = kExample + "chall/prV_B7yEyA4";
    params.payload = Json::Value(Json::objectValue);
    world.AnswerHttp("POST " + params.url, Printed(200, "", R"({
  "type": "http-01",
  "url": "https://example.com/acme/chall/prV_B7yEyA4",
  "status": "valid",
  "validated": "2014-12-01T12:05:58.16Z",
  "token": "DGyRejmCefe7v4NfDGDKfA"
})"));
    WaitToResolve(params, "challenge");
    EXPECT_EQ(Requests().at(0).payload, "{}\n");
    EXPECT_THAT(JobLog(), ElementsAre("processing,challenge_success,"));
}

// Behaviour: So are its finalized order, certificate chain and problem document
TEST_F(Rfc8555Example, FinalizedOrderGivesItsCertificate) {
    ambrin_data.finalize = kExample + "order/TOlocE8rfgo/finalize";
    world.AnswerHttp("POST " + ambrin_data.finalize,
                     Printed(200,
                             "Replay-Nonce: CGf81JWBsq8QyIgPCi9Q9X\n"
                             "Location: https://example.com/acme/order/TOlocE8rfgo\n",
                             kValidOrder));
    EXPECT_EQ(GetCertOrderUrl(params, "MIIBPTCBxAIBADBFMQ"), kExample + "cert/jWCdfHVGY2M");
    EXPECT_EQ(Requests().at(0).payload, "{\"csr\":\"MIIBPTCBxAIBADBFMQ\"}\n");
}

// Behaviour: So are its finalized order, certificate chain ...
TEST_F(Rfc8555Example, CertificateChainIsTheBodyAsItIs) {
    const std::string chain =
        "-----BEGIN CERTIFICATE-----\n[End-entity certificate contents]\n-----END CERTIFICATE-----\n"
        "-----BEGIN CERTIFICATE-----\n[Issuer certificate contents]\n-----END CERTIFICATE-----";
    params.url = kExample + "cert/mAt3xBGaobw";
    world.AnswerHttp("POST " + params.url,
                     Printed(200,
                             "Content-Type: application/pem-certificate-chain\n"
                             "Link: <https://example.com/acme/directory>;rel=\"index\"\n",
                             chain));
    const AcmeResponse response = AcmePost(params, true);
    EXPECT_FALSE(IsFailed(response));
    EXPECT_EQ(response.body, chain);
    EXPECT_EQ(response.headers.at("content-type"), "application/pem-certificate-chain");
}

// Behaviour: So are its finalized order, certificate chain ...
TEST_F(Rfc8555Example, ProblemWithoutAStatusIsToldByItsDetail) {
    world.AnswerHttp("POST *", Printed(403,
                                       "Content-Type: application/problem+json\n"
                                       "Link: <https://example.com/acme/directory>;rel=\"index\"\n",
                                       kProblem));
    EXPECT_EQ(NewOrder(params), "");
    EXPECT_THAT(JobLog(),
                ElementsAre("failed,order_failed,<p><b>Return code:</b> 0</p></br><p><b>Details:</b> "
                            "Some of the identifiers requested were rejected</p>"));
}

}  // namespace
