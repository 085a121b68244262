#include "flow/finalization.h"

#include "support/job_test.h"

namespace {

using ambrin_test::JobTest;
using ambrin_test::JsonAnswer;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class Finalization : public JobTest {
protected:
    Finalization() {
        StoreAccount();
        AnswerNonces();
        ambrin_data.finalize = kUrl;
        ambrin_data.finalize_check = "https://ca.test/order/1";
    }

    std::string FinalizeAnsweredBy(int status, const std::string& body) {
        world.AnswerHttp("POST " + kUrl, JsonAnswer(status, body));
        return GetCertOrderUrl(params, "DER");
    }

    const std::string kUrl = "https://ca.test/finalize/1";
};

// Behaviours of: Finalization

// Behaviour: Finalization posts {"csr":…} to the stored finalize URL, with nothing of an earlier payload
// Behaviour: A valid order gives its certificate's URL, logged as cert_order_success
TEST_F(Finalization, ValidOrderGivesItsCertificateAfterOneRequest) {
    params.payload["identifiers"] = "old";
    EXPECT_EQ(FinalizeAnsweredBy(200, R"({"status":"valid","certificate":"https://ca.test/cert/1"})"),
              "https://ca.test/cert/1");
    EXPECT_THAT(Story(), ElementsAre("nonce", "POST " + kUrl + " {\"csr\":\"DER\"}"));
    EXPECT_THAT(JobLog(), ElementsAre("processing,cert_order_success,"));
    EXPECT_EQ(Traces().front(), "Ambrin get cert order url");
}

// Behaviour: Polls go to the finalize URL itself
// Behaviour: The first request carries the payload, every ...
TEST_F(Finalization, PollsGoToTheFinalizeUrlItself) {
    world.AnswerHttp("POST " + kUrl, JsonAnswer(200, R"({"status":"processing"})", "Retry-After: 2\r\n"));
    EXPECT_EQ(FinalizeAnsweredBy(200, R"({"status":"valid","certificate":"C"})"), "C");
    EXPECT_THAT(Story(), ElementsAre("nonce", "POST " + kUrl + " {\"csr\":\"DER\"}", "sleep 2000", "nonce",
                                     "POST " + kUrl + " -"));
}

// Behaviour: A refusal or an error object gives nothing, logged as cert_order_fail
TEST_F(Finalization, RefusalGivesNothing) {
    EXPECT_EQ(FinalizeAnsweredBy(403, R"({"status":403,"detail":"orderNotReady"})"), "");
    EXPECT_THAT(JobLog(),
                ElementsAre("failed,cert_order_fail,<p><b>Return code:</b> 403</p></br><p><b>Details:</b> "
                            "orderNotReady</p>"));
}

// Behaviour: A refusal or an error object gives nothing ...
TEST_F(Finalization, OrderWithAnErrorGivesNothing) {
    EXPECT_EQ(FinalizeAnsweredBy(200, R"({"status":"valid","certificate":"C","error":{}})"), "");
}

// Behaviour: An order that stays processing gives nothing, logged as cert_order_req_attempt
TEST_F(Finalization, OrderThatStaysProcessingGivesNothing) {
    world.AlwaysHttp("POST " + kUrl,
                     [](const std::string&) { return JsonAnswer(200, R"({"status":"processing"})"); });
    EXPECT_EQ(GetCertOrderUrl(params, "DER"), "");
    EXPECT_THAT(world.Lines({"sleep"}), SizeIs(60));
    EXPECT_THAT(JobLog(), ElementsAre("failed,cert_order_req_attempt,"));
}

// Behaviour: An unresolved order that names a certificate still gives it
TEST_F(Finalization, CertificateOfAnUnresolvedOrderIsStillTaken) {
    EXPECT_EQ(FinalizeAnsweredBy(200, R"({"status":"ready","certificate":"C"})"), "C");
    EXPECT_THAT(JobLog(), ElementsAre("failed,cert_order_req_attempt,"));
}

// Behaviour: A missing certificate, or one of another type, is no error
TEST_F(Finalization, CertificateOfAnotherTypeIsNoError) {
    EXPECT_EQ(FinalizeAnsweredBy(200, R"({"status":"valid"})"), "");
    EXPECT_EQ(FinalizeAnsweredBy(200, R"({"status":"valid","certificate":["C"]})"), "");
    EXPECT_EQ(FinalizeAnsweredBy(200, R"({"status":"valid","certificate":7})"), "7");
    EXPECT_EQ(FinalizeAnsweredBy(200, R"(["valid"])"), "");
}

// Behaviour: A job without a finalize URL fails at the exchange
TEST_F(Finalization, JobWithoutFinalizeUrlFailsAtTheExchange) {
    ambrin_data.finalize.clear();
    EXPECT_EQ(GetCertOrderUrl(params, "DER"), "");
    EXPECT_THAT(JobLog(), SizeIs(1));
    EXPECT_TRUE(JobLog()[0].starts_with("failed,http_query_error,"));
    EXPECT_THAT(world.Lines({"sleep"}), IsEmpty());
}

// Behaviour: The record is left alone
TEST_F(Finalization, RecordIsLeftAlone) {
    FinalizeAnsweredBy(200, R"({"status":"valid","certificate":"C"})");
    EXPECT_EQ(ambrin_data.finalize, kUrl);
    EXPECT_EQ(ambrin_data.finalize_check, "https://ca.test/order/1");
}

}  // namespace
