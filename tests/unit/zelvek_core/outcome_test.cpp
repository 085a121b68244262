#include "zelvek/jobs/outcome.h"

#include <gtest/gtest.h>

namespace zelvek {
namespace {

history::Event Failed(const std::string& event, int code = 0) {
    const std::string answer =
        "<p><b>Return code:</b> " + std::to_string(code) + "</p></br><p><b>Details:</b> no</p>";
    return {"2026-01-01 00:00:00", "failed", event, code == 0 ? "no route<br>url: https://a/" : answer};
}

const history::Event kStep{"2026-01-01 00:00:00", "processing", "order_success", ""};

// Behaviours of: Scheduling

// Behaviour: A run's events and return codes say what it came to: on its way, an exchange that failed, an
// authority that
//   asks for patience, a refusal, or something that a person has to mend
TEST(OutcomeOfARun, GoesByEventsAndReturnCodes) {
    EXPECT_EQ(OutcomeOf({}, false), Outcome::kOnItsWay);
    EXPECT_EQ(OutcomeOf({kStep}, false), Outcome::kOnItsWay);
    EXPECT_EQ(OutcomeOf({kStep, Failed("http_query_error")}, false), Outcome::kUnreached);
    EXPECT_EQ(OutcomeOf({Failed("acme_request_error", 500)}, false), Outcome::kUnreached);
    EXPECT_EQ(OutcomeOf({Failed("acme_request_error", 429)}, false), Outcome::kLimited);
    EXPECT_EQ(OutcomeOf({Failed("acme_request_error", 503)}, false), Outcome::kLimited);
    EXPECT_EQ(OutcomeOf({Failed("acme_request_error", 403)}, false), Outcome::kRefused);
    EXPECT_EQ(OutcomeOf({Failed("auth_req_attempt")}, false), Outcome::kRefused);
    EXPECT_EQ(OutcomeOf({Failed("timeout_error")}, false), Outcome::kRefused);
    EXPECT_EQ(OutcomeOf({Failed("http_query_error")}, true), Outcome::kForPeople);
}

// Behaviour: Of several failures of a run the last one counts, but an authority that asks for patience gets
// it
TEST(OutcomeOfARun, GoesByTheLastFailure) {
    EXPECT_EQ(OutcomeOf({Failed("acme_request_error", 403), Failed("http_query_error")}, false),
              Outcome::kUnreached);
    EXPECT_EQ(OutcomeOf({Failed("acme_request_error", 429), Failed("http_query_error")}, false),
              Outcome::kLimited);
}

history::Event Step(const std::string& event) {
    return {"2026-01-01 00:00:00", event == "cert_recived" ? "success" : "processing", event, ""};
}

/// Of a run that has proved its names.
Outcome AfterChecks(std::vector<history::Event> rest) {
    rest.insert(rest.begin(), {Step("order_success"), Step("challenge_created"), Step("challenge_success")});
    return OutcomeOf(rest, false);
}

// Behaviour: A run that finalizes its order and gets no certificate counts as one whose certificate may
//   have been issued: the order was accepted and did not become valid, its poll is refused, or it became
//   valid and the certificate was not fetched
TEST(OutcomeOfARun, IsUnfetchedWhereACertificateMayHaveBeenIssued) {
    EXPECT_EQ(AfterChecks({Failed("cert_order_req_attempt")}), Outcome::kUnfetched);
    for (const int code : {400, 403, 404, 405, 409})
        EXPECT_EQ(AfterChecks({Failed("cert_order_fail", code)}), Outcome::kUnfetched) << code;
    EXPECT_EQ(AfterChecks({Step("cert_order_success"), Failed("cert_recive_failed", 404)}),
              Outcome::kUnfetched);
    EXPECT_EQ(AfterChecks({Step("cert_order_success"), Failed("cert_recive_failed", 503)}),
              Outcome::kUnfetched);
    EXPECT_EQ(AfterChecks({Step("cert_order_success"), Failed("http_query_error")}), Outcome::kUnfetched);
    EXPECT_EQ(
        OutcomeOf({Step("order_success"), Step("authorization_success"), Failed("cert_order_fail", 403)},
                  false),
        Outcome::kUnfetched)
        << "names that were proved before";
    EXPECT_EQ(OutcomeOf({Failed("cert_order_req_attempt")}, true), Outcome::kUnfetched);
    history::Event refused = Failed("cert_order_fail", 400);
    refused.detail += "urn:ietf:params:acme:error:badCSR";
    EXPECT_EQ(AfterChecks({refused}), Outcome::kUnfetched) << "whatever its words";
}

// Behaviour: After a run that has died a refused finalization is a refusal like any other: the certificate of
//   its order may have gone with that run
TEST(OutcomeOfARun, IsNotUnfetchedAfterARunThatHasDied) {
    Job job;
    job.died = true;
    const std::string now = "2026-01-01 00:00:00";
    const std::vector<history::Event> refused{Step("challenge_success"), Failed("cert_order_fail", 403)};
    EXPECT_EQ(OutcomeOfRun(job, refused, now), Outcome::kRefused);
    EXPECT_EQ(OutcomeOfRun(Job{}, refused, now), Outcome::kUnfetched);
    EXPECT_EQ(OutcomeOfRun(job, {Step("challenge_success"), Failed("cert_order_req_attempt")}, now),
              Outcome::kUnfetched)
        << "the authority has accepted it just now";
}

// Behaviour: An order that no certificate can have come of is tried again as any other failure: a check
//   has failed, the authority is ill or asks for patience, or there was no nonce
TEST(OutcomeOfARun, IsNotUnfetchedWhereNoCertificateCanHaveBeenIssued) {
    EXPECT_EQ(OutcomeOf({Failed("challenge_req_attempt"), Failed("cert_order_fail", 403)}, false),
              Outcome::kRefused);
    EXPECT_EQ(OutcomeOf({Failed("challenge_req_attempt"), Step("challenge_success"),
                         Failed("cert_order_fail", 403)},
                        false),
              Outcome::kRefused);
    EXPECT_EQ(AfterChecks({Failed("cert_order_fail", 500)}), Outcome::kUnreached);
    EXPECT_EQ(AfterChecks({Failed("cert_order_fail", 429)}), Outcome::kLimited);
    EXPECT_EQ(AfterChecks({Failed("http_query_error"), Failed("cert_order_fail", 400)}), Outcome::kRefused);
    EXPECT_EQ(AfterChecks({Failed("http_query_error")}), Outcome::kUnreached);
    EXPECT_EQ(AfterChecks({Step("cert_order_success"), Step("cert_recived")}), Outcome::kOnItsWay);
    EXPECT_EQ(AfterChecks({Step("cert_order_success"), Step("cert_recived"), Failed("hardreplace_error")}),
              Outcome::kRefused);
}

// Behaviour: A run that is ended while the authority finalizes counts as cut short; one that keeps its
//   challenges or asks for a time does not, since its order goes on
TEST(OutcomeOfARun, IsCutShortWhereItEndsWhileItsOrderIsFinalized) {
    const std::vector<history::Event> events{Step("order_success"), Step("challenge_success")};
    Job job;
    job.finalize = "https://ca.example/finalize/1";
    const auto outcome = [&] { return OutcomeOfRun(job, events, "2026-01-01 00:00:00"); };
    EXPECT_EQ(outcome(), Outcome::kCutShort);
    job.challenges = "[{}]";
    EXPECT_EQ(outcome(), Outcome::kOnItsWay);
    job.challenges = "";
    job.next_attempt = "2026-01-01 00:05:00";
    EXPECT_EQ(outcome(), Outcome::kOnItsWay);
    job.next_attempt = "2025-12-31 00:05:00";
    EXPECT_EQ(outcome(), Outcome::kCutShort);
    job.refusal = "no";
    EXPECT_EQ(outcome(), Outcome::kForPeople);
    job.refusal = "";
    job.verified = true;
    EXPECT_EQ(outcome(), Outcome::kOnItsWay);
    EXPECT_EQ(OutcomeOfRun(Job{}, {Step("order_success")}, "2026-01-01 00:00:00"), Outcome::kOnItsWay);
    EXPECT_EQ(OutcomeOfRun(Job{}, {Step("cert_order_success")}, "2026-01-01 00:00:00"), Outcome::kCutShort)
        << "before it had the certificate";
}

// Behaviour: No other text of a detail decides anything
TEST(OutcomeOfARun, TakesNoCodeFromFreeText) {
    history::Event event = Failed("acme_request_error", 403);
    event.detail += " <p><b>Return code:</b> 429</p>";
    EXPECT_EQ(OutcomeOf({event}, false), Outcome::kRefused);
    event.detail = "see <p><b>Return code:</b> 429</p>";
    EXPECT_EQ(OutcomeOf({event}, false), Outcome::kRefused);
}

}  // namespace
}  // namespace zelvek
