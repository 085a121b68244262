#include <algorithm>

#include "support/issuance.h"
#include "vek/launcher.h"
#include "vek/proc.h"

// Whole runs of an http-01 job, and the runs that end before anything is asked of the authority.
namespace {

using ambrin_test::AuthorizationText;
using ambrin_test::FakeDigestText;
using ambrin_test::IssuanceTest;
using ambrin_test::kCertificateUrl;
using ambrin_test::kDefaultKid;
using ambrin_test::kDerCommand;
using ambrin_test::kDigestCommand;
using ambrin_test::kDirectoryUrl;
using ambrin_test::kFinalizeUrl;
using ambrin_test::kHardReplace;
using ambrin_test::kKeyDumpCommand;
using ambrin_test::kNewNonce;
using ambrin_test::kNewOrder;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using testing::SizeIs;

class HttpRun : public IssuanceTest {
protected:
    static std::string AnswerFile(const std::string& action, const std::string& token) {
        return "panel func=ambrin_challenge&action=" + action + "&user_name=ann&file_name=" + token +
               "&content=" + KeyAuthz(token);
    }
};

const std::string kOrderPayload =
    R"({"identifiers":[{"type":"dns","value":"shop.example"},{"type":"dns","value":"www.shop.example"}]})";

std::vector<std::string> WithoutTheAccountsKey(const std::vector<std::string>& lines) {
    std::vector<std::string> kept;
    for (const std::string& line : lines)
        if (!line.starts_with("9 kid") && !line.starts_with("8 ") && !line.starts_with("9 Acme re"))
            kept.push_back(line);
    return kept;
}

const std::vector<std::string> kReadJobAndCsr{
    "panel func=ambrin.data.edit&elid=7&out=xml",
    "panel func=sslcert.csr.edit&domain=shop.example%20www.shop.example&su=ann&"
    "keysize=2048",
    "panel func=sslcert.csr.edit&out=xml&elid=shop.example",
    "panel func=sslcert.csr.delete&elid=shop.example", "GET " + kDirectoryUrl};

// Behaviours of: Course of a run

// Behaviour: The CSR is made, read and removed before the authority is asked anything
// Behaviour: Challenges are answered, then the order is finalized, then the certificate downloaded, then
//   installed
// Behaviour: The body is cut at its last blank line: certificate before it, chain after it
// Behaviour: Installation is one query "sslcert.hardreplace" with chain, panel id, user, certificate and key
//   in this order
// Behaviour: A certificate's panel id is user name, "%#%" and certificate name
TEST_F(HttpRun, FirstRunAsksForEverythingInItsOrder) {
    EXPECT_EQ(Run(), 0);
    const std::vector<std::string> story = Story();
    ASSERT_GT(story.size(), kReadJobAndCsr.size());
    EXPECT_EQ(std::vector(story.begin(), story.begin() + 5), kReadJobAndCsr);
    EXPECT_THAT(
        std::vector(story.begin() + 5, story.end() - 2),
        ElementsAre(
            "child " + kKeyDumpCommand, "nonce", "POST " + kDefaultKid + " null", "nonce",
            "POST " + kNewOrder + " " + kOrderPayload, "nonce", "POST https://ca.test/authz/1 -", "nonce",
            "POST https://ca.test/authz/2 -", "child " + kDigestCommand, AnswerFile("create", "http1"),
            AnswerFile("create", "http2"), "nonce", "POST https://ca.test/http/1 {}", "nonce",
            "POST https://ca.test/http/2 {}", AnswerFile("delete", "http1"), AnswerFile("delete", "http2"),
            "child " + kDerCommand, "nonce", "POST " + kFinalizeUrl + R"( {"csr":"REVSIG9mIENTUg"})", "nonce",
            "POST " + kCertificateUrl + " -",
            "panel func=sslcert.hardreplace&cacrt=ROOT&elid=ann%25%23%25shop.example&user=ann&crt=LEAF%0A%0A"
            "ISSUER&key=KEY&sok=ok"));
    EXPECT_THAT(ProblemsRaised(), ElementsAre("ann: ambrin_success message name=shop.example",
                                              "(none): ambrin_success message name=shop.example"));
}

// Behaviours of: Log of a run

// Behaviour: Publication is framed by the entries challenge_start and challenge_created
// Behaviour: The job log of a first run has its eleven entries in order
TEST_F(HttpRun, FirstRunWritesItsJobLog) {
    Run();
    EXPECT_THAT(JobLog(), ElementsAre("processing,order_success,", "processing,authorization_try,",
                                      "processing,authorization_success,", "processing,authorization_try,",
                                      "processing,authorization_success,", "processing,challenge_start,",
                                      "processing,challenge_created,", "processing,challenge_success,",
                                      "processing,challenge_success,", "processing,cert_order_success,",
                                      "success,cert_recived,"));
}

// Behaviour: The start of the work on a job is traced with its certificate's name
// Behaviour: The authorization URLs of the order, and the stored challenges, are traced
// Behaviour: The whole trace of a first run stands in its order
// Behaviour: A run opens the log "ambrin" at level 9 before ...
// Behaviour: The body is cut at its last blank line: certificate ...
// Behaviour: A received certificate is traced and logged ...
TEST_F(HttpRun, FirstRunWritesItsLogFile) {
    Run();
    EXPECT_EQ(world.calls().front().Line(), "open log: ambrin 9");
    EXPECT_THAT(
        WithoutTheAccountsKey(LogLines()),
        ElementsAre("9 start 'shop.example' cert verification",
                    "9 create csr for domains 'shop.example www.shop.example'", "9 we got csr\n 'CSR'",
                    "9 get challendes", "9 Ambrin new order",
                    "9 autorizations 'https://ca.test/authz/1 https://ca.test/authz/2'",
                    "9 Ambrin begin autorizations", "9 autorization url 'https://ca.test/authz/1'",
                    "9 autorization url 'https://ca.test/authz/2'",
                    "9 all challenges '[" + AuthorizationText(1) + "," + AuthorizationText(2) + "]\n'",
                    HasSubstr("9 list val '"), HasSubstr("9 domain 'shop.example'\ntoken http1"),
                    HasSubstr("9 list val '"), HasSubstr("9 domain 'www.shop.example'\ntoken http2"),
                    "9 Ambrin start challenges", "9 wait for 'https://ca.test/http/1' resolve",
                    "9 wait for 'https://ca.test/http/2' resolve", "9 Ambrin challenge complete",
                    "9 Ambrin get cert order url", "9 wait for '" + kFinalizeUrl + "' resolve",
                    "9 Ambrin cert is received", "9 cert 'LEAF\n\nISSUER'", "9 chain 'ROOT'"));
}

// Behaviours of: Course of a run

// Behaviour: The record is written back exactly once, by its destruction after the run
// Behaviour: Only a registration asks the panel to keep the account as its default
// Behaviour: An installed job is verified, not failed, not forced, and has no order any more
// Behaviour: A usable account sets the count of failed ...
TEST_F(HttpRun, FinishedJobIsWrittenBackOnce) {
    job["failed"] = "on";
    job["force_update"] = "on";
    job["next_attempt"] = "2030-06-01 11:30:00";
    Run();
    const std::string log = ambrin_data.log;
    EXPECT_THAT(
        EndOfProcess(),
        ElementsAre(Pair("account_check_count", "0"), Pair("acmekey", vek_double::FakePem("default")),
                    Pair("attempt_count", "0"), Pair("challenges", ""), Pair("elid", "7"),
                    Pair("failed", "off"), Pair("finalize", ""), Pair("finalize_check", ""),
                    Pair("force_update", "off"), Pair("func", "ambrin.data.edit"), Pair("kid", kDefaultKid),
                    Pair("log", log),
                    Pair("modulus", ambrin_test::FakeHeader(vek_double::FakePem("default"))),
                    Pair("next_attempt", "2030-06-01 11:30:00"), Pair("processing", "off"), Pair("sok", "ok"),
                    Pair("update_default_account", "off"), Pair("verified", "on")));
}

// Behaviour: The record is written back exactly once ...
TEST_F(HttpRun, RunItselfWritesNothingBack) {
    Run();
    EXPECT_THAT(Story(), Not(Contains(HasSubstr("ambrin.data.edit&sok=ok"))));
}

// Behaviour: A stored account that is valid is used and nothing else is tried
// Behaviour: A usable account sets the count of failed checks to 0, whichever of the three gave it
TEST_F(HttpRun, StoredAccountThatIsValidIsUsed) {
    job["kid"] = ambrin_test::kStoredKid;
    job["acmekey"] = vek_double::FakePem("stored");
    job["modulus"] = ambrin_test::FakeHeader(vek_double::FakePem("stored"));
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(Story().at(6), "POST " + ambrin_test::kStoredKid + " null");
    EXPECT_THAT(Story(), Not(Contains("child " + kKeyDumpCommand)));
    EXPECT_EQ(ambrin_data.account_check_count, 0);
}

// Behaviour: A job without any account registers one
// Behaviour: A usable account sets the count of failed ...
// Behaviour: Only a registration asks the panel to keep ...
TEST_F(HttpRun, JobWithoutAnyAccountRegistersOne) {
    job.erase("default_kid");
    job.erase("default_pem");
    EXPECT_EQ(Run(), 0);
    const auto posted = EndOfProcess();
    EXPECT_EQ(posted.at("kid"), "https://ca.test/account/new");
    EXPECT_EQ(posted.at("acmekey"), vek_double::FakePem("1"));
    EXPECT_EQ(posted.at("update_default_account"), "on");
    EXPECT_EQ(posted.at("account_check_count"), "0");
    EXPECT_THAT(posted.at("log"), HasSubstr("registration_try"));
}

// Behaviour: The account of the record is read at each request: one stored by a registration signs the next
//   request
TEST_F(HttpRun, RequestsAfterTheRegistrationAreSignedByKeyId) {
    job.erase("default_pem");
    Run();
    ASSERT_GT(Requests().size(), 2U);
    EXPECT_TRUE(Requests()[0].header.isMember("jwk"));
    for (std::size_t i = 1; i < Requests().size(); ++i)
        EXPECT_EQ(Requests()[i].header["kid"].asString(), "https://ca.test/account/new");
}

// Behaviour: The stored key signs exactly the encoded ...
// Behaviour: Every request takes a nonce of its own; none ...
TEST_F(HttpRun, EveryRequestIsSignedOverItsTextsWithANonceOfItsOwn) {
    Run();
    int number = 0;
    for (const auto& request : Requests()) {
        EXPECT_EQ(request.header["nonce"].asString(), "nonce-" + std::to_string(++number));
        EXPECT_EQ(request.header["url"].asString(), request.url);
        EXPECT_EQ(request.signature,
                  vek_double::FakeSignature(vek_double::FakePem("default"), request.signing_input));
    }
    EXPECT_EQ(number, 8);
}

// Behaviour: The account key is decoded once ...
// Behaviour: No decoded account key is left when the certificate is installed
TEST_F(HttpRun, DecodedKeyIsGoneWhenTheCertificateIsInstalled) {
    int held = -1;
    world.AlwaysPanel(kHardReplace, [&](const std::string&) {
        held = world.keys_held();
        return std::string("<doc/>");
    });
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(held, 0);
    EXPECT_EQ(world.decodings(), 1);
}

// Behaviour: No decoded account key is left of a run that breaks off
TEST_F(HttpRun, DecodedKeyIsGoneWhenTheRunBreaksOff) {
    world.FailAt("sign", 3, vek_double::Failure::kInterrupted);
    EXPECT_THROW(Run(), vek_proc::Interrupted);
    EXPECT_EQ(world.decodings(), 1);
    EXPECT_EQ(world.keys_held(), 0);
}

// Behaviour: A later attempt with stored challenges skips account, order and publication
// Behaviour: "get challendes" and "no need for new challenges" tell in the trace which of the two it is
TEST_F(HttpRun, SecondRunGoesStraightToTheStoredChallenges) {
    MakeSecondRun();
    EXPECT_EQ(Run(), 0);
    const std::vector<std::string> story = Story();
    EXPECT_EQ(std::vector(story.begin(), story.begin() + 5), kReadJobAndCsr);
    EXPECT_THAT(std::vector(story.begin() + 5, story.begin() + 10),
                ElementsAre("child " + kDigestCommand, "nonce", "POST https://ca.test/http/1 null", "nonce",
                            "POST https://ca.test/http/2 null"));
    EXPECT_THAT(Traces(), Contains("no need for new challenges"));
    EXPECT_THAT(Traces(), Not(Contains("get challendes")));
    EXPECT_TRUE(ambrin_data.verified);
}

// Behaviour: A first attempt, and any attempt without ...
// Behaviour: "get challendes" and "no need for new challenges" ...
TEST_F(HttpRun, LaterRunWithoutStoredChallengesPlacesANewOrder) {
    job["attempt_count"] = "5";
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(Traces(), Contains("get challendes"));
    EXPECT_THAT(Story(), Contains("POST " + kNewOrder + " " + kOrderPayload));
}

// Behaviour: A first attempt, and any attempt without stored challenges, looks for an account and places an
//   order
TEST_F(HttpRun, FirstRunWithStoredChallengesPlacesANewOrder) {
    MakeSecondRun();
    job["attempt_count"] = "0";
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(Story(), Contains("POST " + kNewOrder + " " + kOrderPayload));
}

// Behaviour: The attempt count stops at the largest number
TEST_F(HttpRun, AttemptIsCountedUpToTheLargestNumber) {
    job["attempt_count"] = "2147483647";
    world.AlwaysHttp("GET " + kDirectoryUrl,
                     [](const std::string&) { return ambrin_test::JsonAnswer(500, ""); });
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(ambrin_data.attempt_count, 2147483647);
}

// Behaviour: An order whose names are all valid already publishes nothing and goes on
TEST_F(HttpRun, OrderWhoseNamesAreAllValidPublishesNothing) {
    for (const std::string n : {"1", "2"}) Object("https://ca.test/authz/" + n, 200, R"({"status":"valid"})");
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(JobLog(), Not(Contains(HasSubstr("challenge_start"))));
    EXPECT_THAT(Story(), Not(Contains(HasSubstr("ambrin_challenge"))));
    EXPECT_TRUE(ambrin_data.verified);
}

// Behaviour: Only exactly "dns" has its records looked up; every other check type goes straight to answering
TEST_F(HttpRun, AnyCheckTypeButExactlyDnsSkipsTheDnsCheck) {
    for (const std::string type : {"http", "", "DNS", "dns-01", "dns "}) {
        job["check_type"] = type;
        Run();
        EXPECT_THAT(Story(), Not(Contains(HasSubstr("child dig")))) << type;
        EXPECT_EQ(EndOfProcess().at("verified"), "on");
    }
}

// Behaviour: A body without a blank line is all chain, and is installed so
TEST_F(HttpRun, BodyWithoutBlankLineIsAChainWithoutCertificateAndInstalledSo) {
    Object(kCertificateUrl, 200, "LEAF\nISSUER\n");
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(
        Story(),
        Contains("panel func=sslcert.hardreplace&cacrt=LEAF%0AISSUER&elid=ann%25%23%25shop.example&user=ann&"
                 "crt=&key=KEY&sok=ok"));
}

// Behaviour: Nobody looks at what the two pieces hold, not even whether they are empty
TEST_F(HttpRun, EmptyCertificateIsInstalledLikeAnyOther) {
    Object(kCertificateUrl, 200, "");
    EXPECT_EQ(Run(), 0);
    EXPECT_TRUE(ambrin_data.verified);
}

// Behaviour: Success is told to administrator, owner and ...
TEST_F(HttpRun, SuccessIsToldToTheFurtherAddresseeToo) {
    job["res_name"] = "reseller";
    Run();
    EXPECT_THAT(ProblemsRaised(), ElementsAre("ann: ambrin_success message name=shop.example",
                                              "reseller: ambrin_success message name=shop.example",
                                              "(none): ambrin_success message name=shop.example"));
}

// Behaviours of: Log of a run

// Behaviour: No key reaches log file or job log
TEST_F(HttpRun, LogsNeverShowAKey) {
    Run();
    EXPECT_THAT(LogLines(), Each(Not(testing::AnyOf(HasSubstr("BEGIN FAKE"), HasSubstr("KEY")))));
    EXPECT_THAT(ambrin_data.log, Not(HasSubstr("FAKE")));
}

// Behaviour: Nothing is written at a level that is off ...
TEST_F(HttpRun, NothingIsLoggedWhereTheLogIsOff) {
    world.SetLogLevel(0);
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(LogLines(), IsEmpty());
}

class MissingId : public IssuanceTest {};

// Behaviours of: Beginning of a run

// Behaviour: A run opens the log "ambrin" at level 9 before anything else
// Behaviour: An id that reads as 0 ends the run with status 1 and "Certificate ID is missed" at level 3,
//   before anything is asked
TEST_F(MissingId, EndsTheRunBeforeAnythingIsAsked) {
    for (const std::string argument : {"0", "", "seven", "-", "+0", " ", "x7"}) {
        world.ForgetCalls();
        EXPECT_EQ(Run(argument), 1) << argument;
        EXPECT_THAT(world.Lines(), ElementsAre("open log: ambrin 9", "log: 3 Certificate ID is missed"))
            << argument;
    }
}

// Behaviour: A run without any argument is one with a missing id
TEST_F(MissingId, WithoutAnyArgumentIsTheSame) {
    std::string program = "ambrin";
    char* argv[] = {program.data(), nullptr};
    EXPECT_EQ(zelmain(1, argv), 1);
    EXPECT_THAT(LogLines(), ElementsAre("3 Certificate ID is missed"));
}

// Behaviour: A run with a missing id still writes the record back, as job 0
TEST_F(MissingId, RecordIsStillWrittenBackAsJobZero) {
    Run("0");
    const auto posted = EndOfProcess();
    EXPECT_EQ(posted.at("elid"), "0");
    EXPECT_EQ(posted.at("attempt_count"), "0");
    EXPECT_EQ(posted.at("log"), "");
    EXPECT_EQ(posted.at("processing"), "off");
}

// Behaviour: Leading blanks, a sign and trailing text do not make an id a missing one
TEST_F(MissingId, IsNotWhatLeadingBlanksOrTrailingTextMake) {
    job["verified"] = "on";
    for (const std::string argument : {" 7", "7", "7x", "+7", "007"}) EXPECT_EQ(Run(argument), 0) << argument;
}

class VerifiedJob : public IssuanceTest {
protected:
    VerifiedJob() { job["verified"] = "on"; }
};

// Behaviour: A verified job ends the run at once with status 0 and "'…' cert already verified" at level 4
TEST_F(VerifiedJob, EndsTheRunAtOnce) {
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(Story(), ElementsAre("panel func=ambrin.data.edit&elid=7&out=xml"));
    EXPECT_THAT(LogLines(), ElementsAre("4 'shop.example' cert already verified"));
}

// Behaviour: A verified job never times out and needs no start time
TEST_F(VerifiedJob, NeverTimesOut) {
    job["time_started"] = "2001-01-01 00:00:00";
    EXPECT_EQ(Run(), 0);
    EXPECT_FALSE(ambrin_data.failed);
    EXPECT_THAT(Story(), SizeIs(1));
}

// Behaviour: A verified job never times out and needs ...
TEST_F(VerifiedJob, NeedsNoStartTime) {
    job["time_started"] = "";
    EXPECT_EQ(Run(), 0);
}

// Behaviour: A verified job is left as it is and written back all the same
// Behaviour: The write-back always sends "processing" ...
TEST_F(VerifiedJob, IsWrittenBackAllTheSame) {
    job["attempt_count"] = "4";
    Run();
    const auto posted = EndOfProcess();
    EXPECT_EQ(posted.at("verified"), "on");
    EXPECT_EQ(posted.at("attempt_count"), "4");
    EXPECT_EQ(posted.at("processing"), "off");
    EXPECT_EQ(posted.at("log"), "");
}

}  // namespace
