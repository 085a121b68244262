// What people are told about a job.
#include "zelvek/jobs/reason.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "zelvek/base/finding_state.h"

namespace zelvek {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* kNow = "2026-03-01 12:00:00";
constexpr const char* kLater = "2026-03-01 13:00:00";
const std::string kServe =
    "see that shop.example points to this server alone, and that its web server shows what lies below "
    "/.well-known/acme-challenge/";
const std::string kDue = "; the next run is due at 2026-03-01 13:00:00 UTC.";

/// A job that waits after a failed run.
JobFacts Facts(const std::vector<history::Event>& events = {}) {
    JobFacts facts{{}, events, {}, {}, {}, kNow};
    facts.job.id = 7;
    facts.job.aliases = "shop.example";
    facts.job.check_type = "http";
    facts.job.last_run = "2026-03-01 11:59:00";
    facts.job.due = kLater;
    facts.job.failures = events.empty() ? 0 : 1;
    return facts;
}

history::Event Refused(const std::string& event, int code, const std::string& words) {
    return {
        kNow, "failed", event,
        "<p><b>Return code:</b> " + std::to_string(code) + "</p></br><p><b>Details:</b> " + words + "</p>"};
}

history::Event Failed(const std::string& event, const std::string& detail = "") {
    return {kNow, "failed", event, detail};
}

history::Event Step(const std::string& event) { return {kNow, "processing", event, ""}; }

std::string SentenceOf(const JobFacts& facts) { return ReasonOf(facts).sentence; }

std::string AfterProblem(const std::string& type, const std::string& event = "challenge_fail",
                         int code = 400) {
    return SentenceOf(Facts({Refused(event, code, "urn:ietf:params:acme:error:" + type + " :: the words")}));
}

// Behaviours of: What people are told about a job

// Behaviour: Every problem of RFC 8555 that an authority names has a sentence of its own, which says what it
//   means and what a person can do
TEST(ReasonOfAJob, EveryProblemOfAnAuthorityHasASentence) {
    const std::map<std::string, std::string> sentences{
        {"accountDoesNotExist", "The authority does not know the job's account"},
        {"alreadyRevoked", "The authority has revoked this certificate already"},
        {"badCSR", "The authority does not take the certificate's request"},
        {"badNonce", "The authority did not know a request's nonce"},
        {"badPublicKey", "The authority does not take the account's key"},
        {"badRevocationReason", "The authority does not take the reason of a revocation"},
        {"badSignatureAlgorithm", "The authority does not take signatures of the kind RS256"},
        {"caa", "The CAA records of shop.example forbid this authority to issue"},
        {"compound", "The authority has refused several things at once"},
        {"connection", "The authority could not connect to the server of shop.example"},
        {"dns", "The authority could not look up shop.example in the DNS"},
        {"externalAccountRequired",
         "The authority takes accounts alone that are bound to a customer's account with its operator"},
        {"incorrectResponse", "The authority found another answer than this server's at shop.example"},
        {"invalidContact", "The authority does not take the account's address for messages"},
        {"malformed", "The authority could not make sense of a request"},
        {"orderNotReady", "The order was finalized before it was ready"},
        {"rateLimited", "The authority asks for patience, since it was asked for too much of late"},
        {"rejectedIdentifier", "The authority issues no certificate for shop.example"},
        {"serverInternal", "The authority has trouble of its own"},
        {"tls", "The authority met a TLS server that it could not talk to when it checked shop.example"},
        {"unauthorized", "The authority did not find this server's answer at shop.example"},
        {"unsupportedContact", "The authority cannot use the account's address for messages"},
        {"unsupportedIdentifier", "The authority issues no certificates for names such as shop.example"},
        {"userActionRequired", "The authority wants a person to do something before it goes on"}};
    for (const auto& [type, beginning] : sentences) {
        const std::string sentence = AfterProblem(type);
        EXPECT_THAT(sentence,
                    StartsWith(beginning + " (\"urn:ietf:params:acme:error:" + type + " :: the words\"); "));
        EXPECT_TRUE(sentence.ends_with(kDue)) << sentence;
        const std::size_t remedy = sentence.size() - beginning.size() - kDue.size();
        EXPECT_GT(remedy, std::string("nobody has to do anything").size()) << sentence;
    }
    EXPECT_EQ(AfterProblem("unauthorized"),
              "The authority did not find this server's answer at shop.example"
              " (\"urn:ietf:params:acme:error:unauthorized :: the words\"); " +
                  kServe + kDue);
}

// Behaviour: Where the authority's problem is not known, status and event say what it means
TEST(ReasonOfAJob, StatusAndEventSayWhatAnUnknownProblemMeans) {
    const auto sentence = [](const std::string& event, int code) {
        return SentenceOf(Facts({Refused(event, code, "no")}));
    };
    EXPECT_EQ(sentence("challenge_fail", 403),
              "The authority could not check shop.example (\"no\"); " + kServe + kDue);
    EXPECT_THAT(sentence("challenge_fail", 429), StartsWith("The authority asks for patience, "));
    EXPECT_THAT(sentence("order_failed", 503), StartsWith("The authority has trouble of its own (\"no\"); "));
    const std::map<std::string, std::string> beginnings{
        {"order_failed", "The authority refused the order (\"no\"); "},
        {"registration_fail", "The authority refused to register an account (\"no\"); "},
        {"authorization_fail", "The authority refused to say how shop.example is to be proved (\"no\"); "},
        {"cert_order_fail",
         "The authority refused to issue the certificate, or to say what becomes of it (\"no\"); "},
        {"cert_recive_failed",
         "The authority has issued the certificate, and did not give it out (\"no\"); "},
        {"acme_request_error", "The authority refused a request (\"no\"); "},
        {"some_later_event", "The last run failed (\"no\"); "}};
    for (const auto& [event, beginning] : beginnings)
        EXPECT_THAT(sentence(event, 400), StartsWith(beginning));
    EXPECT_THAT(AfterProblem("unauthorized", "order_failed"),
                StartsWith("The authority refused the order ("));
    EXPECT_THAT(AfterProblem("nonsense"), StartsWith("The authority could not check shop.example ("));
}

// Behaviour: What fails without an answer of the authority's has sentences too
TEST(ReasonOfAJob, WhatFailsWithoutAnAnswerHasSentencesToo) {
    EXPECT_EQ(
        SentenceOf(Facts({Failed("http_query_error", "a.example: no route<br>url: https://a.example/d")})),
        "The authority could not be reached (\"a.example: no route url: https://a.example/d\"); see that this"
        " server reaches it: network, name servers, trusted roots" +
            kDue);
    EXPECT_THAT(
        SentenceOf(Facts({Failed("hardreplace_error", "the disk is full")})),
        StartsWith("The certificate was issued, but could not be installed (\"the disk is full\"); "));
    EXPECT_THAT(
        SentenceOf(Facts({Failed("panel_error", "domain.record.edit: no zone")})),
        StartsWith("The service could not do what the run asked for (\"domain.record.edit: no zone\"); "));
    JobFacts died = Facts({Step("order_success")});
    EXPECT_EQ(SentenceOf(died),
              "The last run ended without saying why; look into the log of the runs" + kDue);
    EXPECT_EQ(SentenceOf(Facts({Step("order_success"), Step("challenge_success")})),
              "The last run was ended while the authority finished the order" + kDue);
}

// Behaviour: A paused job is told as paused, with how it goes on, whatever would be next otherwise
TEST(ReasonOfAJob, APausedJobIsToldAsPaused) {
    const std::string paused =
        "The job is paused: it is neither run nor renewed; \"zelvek job resume 7\" lets it go on.";
    JobFacts facts = Facts({Failed("challenge_req_attempt")});
    facts.job.id = 7;
    facts.job.paused = true;
    facts.job.failures = 2;
    EXPECT_EQ(SentenceOf(facts), paused);
    EXPECT_THAT(ReasonOf(facts).details, testing::IsEmpty());
    facts.job.verified = true;
    facts.job.expires = "2031-05-04 10:22:41";
    EXPECT_EQ(SentenceOf(facts), paused);
    EXPECT_THAT(ReasonOf(facts).details,
                testing::ElementsAre("The certificate is installed and ends at 2031-05-04 10:22:41 UTC"));
}

// Behaviour: A check that fails without a reason is told as that, not as the order that is not ready after it
TEST(ReasonOfAJob, AHiddenReasonIsSaidToBeHidden) {
    const std::string hidden =
        "The authority says that shop.example is not proved, and does not say why; " + kServe + kDue;
    const auto not_ready = Refused("cert_order_fail", 403, "Order is not ready");
    EXPECT_EQ(SentenceOf(Facts({Failed("challenge_req_attempt"), not_ready})), hidden);
    EXPECT_EQ(SentenceOf(Facts({Failed("challenge_req_attempt"), Step("challenge_success"), not_ready})),
              hidden);
    EXPECT_EQ(SentenceOf(Facts({Failed("challenge_req_attempt")})), hidden);
    EXPECT_THAT(
        SentenceOf(Facts({Failed("challenge_req_attempt"), Step("order_success"), not_ready})),
        StartsWith("The authority refused to issue the certificate, or to say what becomes of it (\"Order is "
                   "not ready\"); "))
        << "another run's";
    const auto caa = Refused("cert_order_fail", 403, "urn:ietf:params:acme:error:caa no");
    EXPECT_THAT(SentenceOf(Facts({Failed("challenge_req_attempt"), caa})), StartsWith("The CAA records of "));
    EXPECT_THAT(SentenceOf(Facts({Failed("challenge_req_attempt"), Refused("cert_order_fail", 500, "ill")})),
                StartsWith("The authority has trouble of its own "));
}

// Behaviour: Of an order that was finalized and gave no certificate a person is told that the authority
//   may finish it later, what waits for such authorities, and that orders come about a day apart
TEST(ReasonOfAJob, AnUnfetchedCertificateIsToldWithWhatWaitsForIt) {
    const std::string later =
        "; where it finishes orders later, use the program that waits for that: see docs/authorities.md; "
        "orders are"
        " placed about a day apart, since an authority limits the certificates of a name" +
        kDue;
    EXPECT_EQ(SentenceOf(Facts({Step("challenge_success"), Failed("cert_order_req_attempt")})),
              "The authority took the order, and did not give its certificate" + later);
    EXPECT_EQ(
        SentenceOf(Facts({Step("challenge_success"), Refused("cert_order_fail", 400, "no")})),
        "The authority refused to issue the certificate, or to say what becomes of it (\"no\")" + later);
    EXPECT_EQ(SentenceOf(Facts({Step("cert_order_success"), Refused("cert_recive_failed", 404, "no")})),
              "The authority has issued the certificate, and did not give it out (\"no\"); orders are placed "
              "about a day"
              " apart, since an authority limits the certificates of a name" +
                  kDue);
    EXPECT_EQ(SentenceOf(Facts({Step("cert_order_success"), Failed("http_query_error", "no route")})),
              "The authority has issued the certificate, and did not give it out (\"no route\"); orders are "
              "placed about"
              " a day apart, since an authority limits the certificates of a name" +
                  kDue);
    EXPECT_THAT(SentenceOf(Facts({Refused("cert_order_fail", 403, "urn:ietf:params:acme:error:badCSR no")})),
                StartsWith("The authority does not take the certificate's request "));
    JobFacts stopped = Facts({Failed("cert_order_req_attempt"), Failed("timeout_error")});
    stopped.job.failed = true;
    EXPECT_THAT(SentenceOf(stopped),
                HasSubstr("; the authority took the order, and did not give its certificate; where"));
}

// Behaviour: A request that fails since there was no nonce is told by what kept the nonce away
TEST(ReasonOfAJob, AMissingNonceIsToldByItsReason) {
    const auto without_nonce = Refused("order_failed", 400, "no nonce");
    EXPECT_THAT(SentenceOf(Facts({Refused("acme_request_error", 503, "busy"), without_nonce})),
                StartsWith("The authority has trouble of its own (\"busy\"); "));
    auto long_ago = Refused("acme_request_error", 503, "busy");
    long_ago.time = "2026-03-01 11:00:00";
    EXPECT_THAT(SentenceOf(Facts({long_ago, without_nonce})), StartsWith("The authority refused the order "));
}

// Behaviour: What an examination has found stands in the sentence about a failed check, and in no other
TEST(ReasonOfAJob, AFailedCheckIsToldWithWhatWasFound) {
    const auto told = [](const std::string& state, const std::string& place, const std::string& detail) {
        JobFacts facts = Facts({Refused("challenge_fail", 403, "no")});
        facts.findings = {{"shop.example", "192.0.2.1", finding_state::kThere, "", kNow},
                          {"shop.example", place, state, detail, kNow}};
        return SentenceOf(facts);
    };
    const std::string check = "The authority could not check shop.example: ";
    EXPECT_EQ(told(finding_state::kOther, "203.0.113.7", "404 Not Found"),
              check +
                  "shop.example points to 203.0.113.7, where instead of this server's answer stood: 404 Not "
                  "Found; " +
                  kServe + kDue);
    EXPECT_THAT(told(finding_state::kUnreached, "203.0.113.7", "refused"),
                StartsWith(check + "203.0.113.7 does not answer for shop.example: refused; "));
    EXPECT_THAT(told(finding_state::kNoAddress, "", ""),
                StartsWith(check + "shop.example has no address in the public DNS; "));
    EXPECT_THAT(
        told(finding_state::kNotPublic, "10.0.0.1", ""),
        StartsWith(check + "shop.example points to 10.0.0.1, which is no address that others reach; "));
    EXPECT_THAT(told(finding_state::kNotLookedUp, "", ""),
                StartsWith(check + "no public name server told the addresses of shop.example; "));
    EXPECT_THAT(told(finding_state::kRedirect, "203.0.113.7", "https://a.example/"),
                StartsWith(check + "shop.example points to 203.0.113.7, which sends visitors on to"
                                   " https://a.example/; "));
    EXPECT_THAT(told(finding_state::kThere, "203.0.113.7", ""),
                StartsWith("The authority could not check shop.example (\"no\"); "));

    JobFacts other = Facts({Refused("order_failed", 400, "no")});
    other.findings = {{"shop.example", "203.0.113.7", finding_state::kOther, "404", kNow}};
    EXPECT_THAT(SentenceOf(other), StartsWith("The authority refused the order (\"no\"); "));
    EXPECT_THAT(
        ReasonOf(other).details,
        ElementsAre("Told with \"order_failed\": no",
                    "shop.example points to 203.0.113.7, where instead of this server's answer stood: 404"
                    " (looked at 2026-03-01 12:00:00 UTC)",
                    "\"zelvek job retry 7\" tries again at once"));
}

// Behaviour: A dns-01 job is told of its records: published, not seen yet, and which name server lacks one
TEST(ReasonOfAJob, ADnsJobIsToldOfItsRecords) {
    JobFacts facts = Facts();
    facts.job.check_type = "dns";
    facts.job.challenges = "[]";
    EXPECT_EQ(SentenceOf(facts), "The job's TXT records are published" + kDue);
    facts.job.postponed = "name servers are slow";
    EXPECT_EQ(
        SentenceOf(facts),
        "The job's TXT records are published; the next run is due at 2026-03-01 13:00:00 UTC, since name"
        " servers are slow.");
    facts.job.next_attempt = kLater;
    facts.findings = {
        {"_acme-challenge.shop.example", "ns2.example (192.0.2.2)", finding_state::kMissing, "", kNow}};
    EXPECT_EQ(
        SentenceOf(facts),
        "Public name servers do not show all of the job's TXT records: the name server ns2.example"
        " (192.0.2.2) does not have the TXT record of _acme-challenge.shop.example; see that all name"
        " servers of the zone take the records over; they are looked up again at 2026-03-01 13:00:00 UTC.");
    JobFacts failed = Facts({Refused("challenge_fail", 403, "no")});
    failed.job.check_type = "dns";
    EXPECT_THAT(SentenceOf(failed), HasSubstr("show the TXT record _acme-challenge below it"));
}

// Behaviour: What the service has refused is told before all else, and that a person has to mend it
TEST(ReasonOfAJob, ARefusalIsToldFirst) {
    JobFacts facts = Facts({Failed("hardreplace_error", "x")});
    facts.job.refusal = "user anna has no zone";
    EXPECT_EQ(SentenceOf(facts),
              "The service has refused something to the last run (\"user anna has no zone\"); mend that, and"
              " \"zelvek job retry 7\" tries again at once" +
                  kDue);
    facts.job.failed = true;
    EXPECT_THAT(SentenceOf(facts), HasSubstr("; the job begins anew at 2026-03-01 13:00:00 UTC."));
}

// Behaviour: A stopped job is told with what kept it from its certificate
TEST(ReasonOfAJob, AStoppedJobIsToldWithWhatKeptIt) {
    JobFacts facts = Facts({Failed("challenge_req_attempt"), Refused("cert_order_fail", 403, "not ready"),
                            Failed("timeout_error")});
    facts.job.failed = true;
    EXPECT_EQ(SentenceOf(facts),
              "The job had no certificate a day after its start; the authority says that shop.example is not"
              " proved, and does not say why; " +
                  kServe + "; the job begins anew at 2026-03-01 13:00:00 UTC.");
    facts.events = {Failed("timeout_error")};
    EXPECT_EQ(
        SentenceOf(facts),
        "The job had no certificate a day after its start; see in its history what kept it from one; the"
        " job begins anew at 2026-03-01 13:00:00 UTC.");
}

// Behaviour: A job that is on its way is told by what it does next
TEST(ReasonOfAJob, AJobOnItsWayIsToldByItsNextStep) {
    JobFacts facts = Facts();
    EXPECT_EQ(SentenceOf(facts), "Nothing is wrong" + kDue);
    facts.job.due = kNow;
    EXPECT_EQ(SentenceOf(facts), "Nothing is wrong; the next run is due now.");
    facts.job.expires = "2026-04-01 00:00:00";
    EXPECT_EQ(SentenceOf(facts), "The certificate is being renewed; the next run is due now.");
    EXPECT_THAT(
        ReasonOf(facts).details,
        ElementsAre("The certificate of before is still installed, and ends at 2026-04-01 00:00:00 UTC"));
    facts.job.processing = true;
    EXPECT_EQ(SentenceOf(facts), "A run of the job is under way.");
}

// Behaviour: An installed certificate is told with its end and its renewal, and with a web server that has
//   not taken it over
TEST(ReasonOfAJob, AnInstalledCertificateIsToldWithItsEnd) {
    JobFacts facts = Facts();
    facts.job.verified = true;
    EXPECT_EQ(SentenceOf(facts), "The certificate is installed.");
    facts.job.expires = "2026-05-01 00:00:00";
    facts.job.renew = "2026-04-01 00:00:00";
    EXPECT_EQ(SentenceOf(facts),
              "The certificate is installed and ends at 2026-05-01 00:00:00 UTC; it is renewed at 2026-04-01"
              " 00:00:00 UTC.");
    EXPECT_THAT(ReasonOf(facts).details, IsEmpty());
    facts.reload = reloads::Reload{"anna", "shop.example", "/c", kNow, 2, kLater, "nginx is ill"};
    EXPECT_EQ(
        SentenceOf(facts),
        "The certificate is installed, but the web server has not taken it over (\"nginx is ill\"); mend"
        " that; its reload is tried again at 2026-03-01 13:00:00 UTC.");
    facts.reload.reset();
    facts.job.expires = "2026-02-01 00:00:00";
    EXPECT_EQ(
        SentenceOf(facts),
        "The certificate has ended at 2026-02-01 00:00:00 UTC; \"zelvek job renew 7\" asks for a new one at"
        " once.");
}

// Behaviour: A web server that still shows an older certificate is told, and one where nothing could be seen
TEST(ReasonOfAJob, AnOlderCertificateThatIsServedIsTold) {
    JobFacts facts = Facts();
    facts.job.verified = true;
    facts.served =
        served::Served{served::kOlder, kNow, "the web server at 192.0.2.1:443 still serves the one of x"};
    EXPECT_EQ(
        SentenceOf(facts),
        "The new certificate is installed, but the web server at 192.0.2.1:443 still serves the one of x;"
        " reload that web server, and see that its configuration names the certificate's folder.");
    EXPECT_THAT(ReasonOf(facts).details, ElementsAre("Looked at 2026-03-01 12:00:00 UTC"));
    facts.served->state = served::kUnreachable;
    EXPECT_EQ(SentenceOf(facts), "The certificate is installed.");
    EXPECT_THAT(ReasonOf(facts).details,
                ElementsAre(StartsWith("Whether the web server shows the certificate could"
                                       " not be seen: the web server at ")));
    facts.served->state = served::kServed;
    EXPECT_THAT(ReasonOf(facts).details, IsEmpty());
    facts.served->state = served::kOlder;
    facts.job.verified = false;
    EXPECT_EQ(SentenceOf(facts), "Nothing is wrong" + kDue);
}

// Behaviour: Texts from outside become one plain, short line, and decide nothing
TEST(ReasonOfAJob, TextsFromOutsideArePlainAndShort) {
    const std::string page =
        "<!DOCTYPE html><style>p{}</style><script>x<y</script><h1>Not\nhere</h1>&lt;b&gt; \x1b[31m";
    EXPECT_THAT(SentenceOf(Facts({Refused("order_failed", 400, page)})),
                StartsWith("The authority refused the order (\"Not here <b> ?[31m\"); "));
    const std::string flood(1'000'000, '<');
    for (const std::string& text :
         {flood, flood + "a>", std::string(300'000, 'w'), "&" + flood, std::string("<p"),
          std::string("<script>"), std::string("a\0b", 3), std::string("\xc3"), std::string("&#x3c;")}) {
        JobFacts facts = Facts({Refused("challenge_fail", 400, text)});
        facts.job.refusal = text;
        facts.job.postponed = text;
        facts.findings = {{text, text, finding_state::kOther, text, text}, {text, text, text, text, text}};
        const Reason refused = ReasonOf(facts);
        facts.job.refusal.clear();
        const Reason failed = ReasonOf(facts);
        for (const Reason& reason : {refused, failed}) {
            EXPECT_LT(reason.sentence.size(), 3000U);
            EXPECT_EQ(reason.sentence.find_first_of(std::string("\n\r\0\x1b", 4)), std::string::npos);
            for (const std::string& detail : reason.details) EXPECT_LT(detail.size(), 3000U);
        }
    }
    history::Event event =
        Failed("order_failed", "see <p><b>Return code:</b> 429</p></br><p><b>Details:</b> x</p>");
    EXPECT_THAT(SentenceOf(Facts({event})), StartsWith("The authority refused the order "));
}

}  // namespace
}  // namespace zelvek
