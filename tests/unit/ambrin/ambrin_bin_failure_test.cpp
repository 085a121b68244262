// Every way in which a run ends early, and what it leaves in the record.
#include "support/failing_run.h"
#include "vek/proc.h"

namespace {

using ambrin_test::FailingRun;
using ambrin_test::JsonAnswer;
using ambrin_test::kCertificateUrl;
using ambrin_test::kDefaultKid;
using ambrin_test::kDerCommand;
using ambrin_test::kDirectoryUrl;
using ambrin_test::kFinalizeUrl;
using ambrin_test::kHardReplace;
using ambrin_test::kNewAccount;
using ambrin_test::kNewOrder;
using ambrin_test::kRefusal;
using ambrin_test::kRefusalText;
using ambrin_test::kStoredKid;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using vek_double::Failure;
using vek_double::FakePem;

// Behaviours of: Outcomes, each with everything asked and everything changed

// Behaviour: A job that cannot be read ends the run by the panel's error, and is written back
TEST_F(FailingRun, JobThatCannotBeReadEndsByThePanelsError) {
    FailPanelQuery("func=ambrin.data.edit&elid=7&out=xml", "missed");
    EXPECT_THROW(Run(), vek_err::Error);
    EXPECT_EQ(EndOfProcess().at("elid"), "7");
}

// Behaviour: An error of the CSR ends the run by the panel's error, with the attempt counted and nothing
//   asked of the authority
TEST_F(FailingRun, CsrThatCannotBeMadeEndsByThePanelsError) {
    FailPanelQuery("func=sslcert.csr.edit&domain=*", "value");
    EXPECT_THROW(Run(), vek_err::Error);
    ExpectNothingInstalled();
    EXPECT_THAT(world.Lines({"http"}), IsEmpty());
    EXPECT_EQ(EndOfProcess().at("attempt_count"), "1");
}

// Behaviour: Directory refused, or with an error object ...
TEST_F(FailingRun, RefusedDirectoryIsAnErrorWithoutALine) {
    world.AlwaysHttp("GET " + kDirectoryUrl, [](const std::string&) { return JsonAnswer(403, kRefusal); });
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(Failures(), IsEmpty());
    EXPECT_THAT(JobLog(), ElementsAre("failed,acme_request_error," + kRefusalText));
    EXPECT_EQ(ambrin_data.attempt_count, 1);
    EXPECT_EQ(ambrin_data.account_check_count, 2);
    EXPECT_EQ(Story().back(), "GET " + kDirectoryUrl);
    ExpectNothingInstalled();
}

// Behaviour: Directory refused, or with an error object ...
TEST_F(FailingRun, DirectoryWithAnErrorIsRefusedToo) {
    world.AlwaysHttp("GET " + kDirectoryUrl,
                     [](const std::string&) { return JsonAnswer(200, R"({"error":{}})"); });
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story().back(), "GET " + kDirectoryUrl);
}

// Behaviour: Directory that is no JSON: the registration fails for want of an address
TEST_F(FailingRun, DirectoryThatIsNoJsonFailsAtTheRegistration) {
    job.erase("default_pem");
    world.AlwaysHttp("GET " + kDirectoryUrl, [](const std::string&) { return JsonAnswer(200, "busy"); });
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(Failures(), ElementsAre("Registration failed"));
}

// Behaviour: Accounts failed within the limit: status 0, "Account check failed. Need retry", check counted
TEST_F(FailingRun, FailedAccountsAreRetriedWithinTheJobsLimit) {
    UseStoredAccount();
    job["max_account_check_attempts"] = "3";
    Object(kStoredKid, 403, kRefusal);
    Object(kDefaultKid, 403, kRefusal);
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(Failures(), ElementsAre("Account check failed. Need retry"));
    EXPECT_EQ(ambrin_data.account_check_count, 3);
    EXPECT_EQ(ambrin_data.kid, kDefaultKid) << "the default account stays in the record";
    EXPECT_EQ(ambrin_data.attempt_count, 1);
    EXPECT_THAT(Story(), Not(Contains(HasSubstr(kNewAccount))));
    EXPECT_THAT(JobLog(), ElementsAre("failed,acme_request_error," + kRefusalText,
                                      "failed,acme_request_error," + kRefusalText));
    ExpectNothingInstalled();
}

// Behaviour: A default key that cannot be read ends the run by its error; the default key id and key are
//   written back beside the stored key header
TEST_F(FailingRun, UnreadableDefaultKeyEndsByItsErrorAndIsWrittenBack) {
    UseStoredAccount();
    Object(kStoredKid, 403, kRefusal);
    world.AlwaysChild(ambrin_test::kKeyDumpCommand, [](const std::string&) {
        return vek_double::ChildAnswer{"Could not read private key", 1};
    });
    EXPECT_THROW(Run(), vek_err::Error);
    ExpectNothingInstalled();
    const auto posted = EndOfProcess();
    EXPECT_EQ(posted.at("kid"), kDefaultKid);
    EXPECT_EQ(posted.at("acmekey"), FakePem("default"));
    EXPECT_EQ(posted.at("modulus"), job["modulus"]);
    EXPECT_EQ(posted.at("attempt_count"), "1");
    EXPECT_EQ(posted.at("account_check_count"), "2");
}

// Behaviour: An interruption while the default key is read writes the stored account back whole
TEST_F(FailingRun, InterruptedReadingOfTheDefaultKeyWritesTheStoredAccountBack) {
    UseStoredAccount();
    Object(kStoredKid, 403, kRefusal);
    world.FailAt("child", 1, Failure::kInterrupted);
    EXPECT_THROW(Run(), vek_proc::Interrupted);
    const auto posted = EndOfProcess();
    EXPECT_EQ(posted.at("kid"), kStoredKid);
    EXPECT_EQ(posted.at("acmekey"), job["acmekey"]);
    EXPECT_EQ(posted.at("modulus"), job["modulus"]);
}

// Behaviour: Accounts failed past the limit: a new account is registered
TEST_F(FailingRun, AccountThatFailsPastTheLimitIsReplaced) {
    UseStoredAccount();
    job.erase("default_pem");
    job["max_account_check_attempts"] = "2";
    Object(kStoredKid, 200, R"({"status":"deactivated"})");
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(ambrin_data.kid, "https://ca.test/account/new");
    EXPECT_EQ(ambrin_data.account_check_count, 0);
    EXPECT_TRUE(ambrin_data.update_default_account);
    EXPECT_TRUE(ambrin_data.verified);
}

// Behaviour: Registration refused: status 1, "Registration ...
TEST_F(FailingRun, RefusedRegistrationIsAnError) {
    job.erase("default_pem");
    Object(kNewAccount, 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(Failures(), ElementsAre("Registration failed"));
    EXPECT_EQ(ambrin_data.account_check_count, 2);
    EXPECT_EQ(ambrin_data.acmekey, FakePem("1"));
    EXPECT_THAT(JobLog(),
                ElementsAre("processing,registration_try,", "failed,registration_fail," + kRefusalText));
    ExpectNothingInstalled();
}

// Behaviour: Order refused: status 1, "Authorisations ...
TEST_F(FailingRun, RefusedOrderIsAnError) {
    Object(kNewOrder, 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(Failures(), ElementsAre("Authorisations is empty"));
    EXPECT_EQ(ambrin_data.account_check_count, 0);
    EXPECT_EQ(ambrin_data.attempt_count, 1);
    EXPECT_THAT(JobLog(), ElementsAre("failed,order_failed," + kRefusalText));
    ExpectNothingInstalled();
}

// Behaviour: Order without authorizations: status 1, "Authorisations ...
TEST_F(FailingRun, OrderWithoutAuthorizationsIsAnErrorToo) {
    Object(kNewOrder, 201, R"({"authorizations":[]})");
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(Failures(), ElementsAre("Authorisations is empty"));
    EXPECT_THAT(JobLog(), ElementsAre("processing,order_success,"));
}

// Behaviour: Authorization refused: status 1, "Failed ...
TEST_F(FailingRun, RefusedAuthorizationIsAnError) {
    Object("https://ca.test/authz/2", 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(Failures(), ElementsAre("Failed to get challenges"));
    EXPECT_EQ(ambrin_data.challenges, "");
    EXPECT_EQ(ambrin_data.finalize, kFinalizeUrl) << "the order stays in the record";
    ExpectNothingInstalled();
}

// Behaviour: No key header, or stored challenges too deep ...
TEST_F(FailingRun, StoredJobWithoutKeyHeaderCannotListItsChallenges) {
    MakeSecondRun();
    job["modulus"] = "";
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(Failures(), ElementsAre("Failed to prepare challenges list"));
    ExpectNothingInstalled();
}

// Behaviour: No key header, or stored challenges too deep ...
TEST_F(FailingRun, StoredChallengesTooDeepForTheLibraryCannotBeListed) {
    MakeSecondRun();
    job["challenges"] = std::string(5000, '[');
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(Failures(), ElementsAre("Failed to prepare challenges list"));
    EXPECT_THAT(JobLog(), ElementsAre("processing,acme_response_error," + job["challenges"]));
}

// Behaviour: Publication failed: the panel's error ends the run after challenge_start, challenges stay stored
TEST_F(FailingRun, PublicationThatFailsEndsByThePanelsErrorWithItsStartLogged) {
    FailPanelQuery("func=ambrin_challenge&action=create&*", "io");
    EXPECT_THROW(Run(), vek_err::Error);
    EXPECT_EQ(JobLog().back(), "processing,challenge_start,");
    EXPECT_THAT(EndOfProcess().at("challenges"), HasSubstr("http1"));
}

// Behaviour: Challenge failed: status 1, "Failed to process ...
TEST_F(FailingRun, FailedChallengeIsAnErrorAfterTheCleanUp) {
    Object("https://ca.test/http/1", 200, R"({"status":"invalid","error":{"status":403,"detail":"no"}})");
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(Failures(), ElementsAre("Failed to process challenges"));
    EXPECT_EQ(JobLog().back(), "failed,challenge_fail," + kRefusalText);
    EXPECT_THAT(Story(), Not(Contains(HasSubstr("http/2"))));
    EXPECT_THAT(Story(), Contains(HasSubstr("action=delete")).Times(2));
    EXPECT_EQ(ambrin_data.attempt_count, 0);
    EXPECT_EQ(ambrin_data.challenges, "");
    ExpectNothingInstalled();
}

// Behaviour: CSR that cannot be converted: the tool's error ends the run, nothing is installed
TEST_F(FailingRun, CsrThatTheToolRefusesEndsByItsError) {
    world.AlwaysChild(kDerCommand, [](const std::string&) {
        return vek_double::ChildAnswer{"bad request", 1};
    });
    try {
        Run();
        FAIL() << "no error";
    } catch (const vek_err::Error& error) {
        EXPECT_EQ(error.type(), "derencode_error");
    }
    ExpectNothingInstalled();
}

// Behaviour: Finalization refused: status 1, "Failed to get cert url", order kept
TEST_F(FailingRun, RefusedFinalizationIsAnError) {
    Object(kFinalizeUrl, 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(Failures(), ElementsAre("Failed to get cert url"));
    EXPECT_EQ(JobLog().back(), "failed,cert_order_fail," + kRefusalText);
    EXPECT_EQ(ambrin_data.finalize, kFinalizeUrl);
    ExpectNothingInstalled();
}

// Behaviour: Order that stays processing: status 1, "Failed to get cert url" after sixty polls
TEST_F(FailingRun, OrderThatStaysProcessingIsAnError) {
    Object(kFinalizeUrl, 200, R"({"status":"processing"})");
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(Failures(), ElementsAre("Failed to get cert url"));
    EXPECT_THAT(world.Lines({"sleep"}), testing::SizeIs(60));
    EXPECT_EQ(JobLog().back(), "failed,cert_order_req_attempt,");
}

// Behaviour: Download refused, or an error object: status ...
TEST_F(FailingRun, RefusedDownloadIsAnError) {
    Object(kCertificateUrl, 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(Failures(), ElementsAre("Failed to get cert"));
    EXPECT_EQ(JobLog().back(), "failed,cert_recive_failed," + kRefusalText);
    EXPECT_THAT(JobLog(), Not(Contains(HasSubstr("cert_recived"))));
    ExpectNothingInstalled();
}

// Behaviour: Download refused, or an error object: status 1, "Failed to get cert", nothing installed
TEST_F(FailingRun, DownloadWithAnErrorObjectIsRefusedToo) {
    Object(kCertificateUrl, 200, R"({"error":{"status":403,"detail":"no"}})");
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(Failures(), ElementsAre("Failed to get cert"));
}

class FailedInstallation : public FailingRun {
protected:
    FailedInstallation() { FailPanelQuery(kHardReplace, "badkey"); }
};

// Behaviours of: Course of a run

// Behaviour: A failed installation stops the job with the panel's text, then is logged as failed /
//   hardreplace_error with it
TEST_F(FailedInstallation, StopsTheJobWithThePanelsText) {
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(ProblemsRaised(),
                ElementsAre("ann: ambrin_failed_user error error=the panel says no name=shop.example",
                            "(none): ambrin_failed_admin error error=the panel says no name=shop.example"));
    const auto log = JobLog();
    EXPECT_THAT(std::vector(log.end() - 2, log.end()),
                ElementsAre("success,cert_recived,", "failed,hardreplace_error,the panel says no"));
    EXPECT_THAT(Failures(), IsEmpty());
}

// Behaviour: A failed installation keeps the order and the wish for a forced renewal
TEST_F(FailedInstallation, KeepsTheOrderInTheRecord) {
    job["force_update"] = "on";
    Run();
    const auto posted = EndOfProcess();
    EXPECT_EQ(posted.at("failed"), "on");
    EXPECT_EQ(posted.at("verified"), "off");
    EXPECT_EQ(posted.at("force_update"), "on");
    EXPECT_EQ(posted.at("finalize"), kFinalizeUrl);
    EXPECT_EQ(posted.at("finalize_check"), "https://ca.test/order/1");
}

// Behaviour: A failed installation whose notification fails too ends by the panel's error, unmarked and
//   unlogged
TEST_F(FailedInstallation, NotificationThatFailsTooEndsByThePanelsError) {
    FailPanelQuery(ambrin_test::kProblem, "value");
    EXPECT_THROW(Run(), vek_err::Error);
    EXPECT_FALSE(ambrin_data.failed);
    EXPECT_THAT(JobLog(), Not(Contains(HasSubstr("hardreplace_error"))));
}

// Behaviours of: Outcomes, each with everything asked and everything changed

// Behaviour: A success notification that fails leaves the job verified
TEST_F(FailingRun, SuccessNotificationThatFailsLeavesTheJobVerified) {
    FailPanelQuery(ambrin_test::kProblem, "value");
    EXPECT_THROW(Run(), vek_err::Error);
    EXPECT_EQ(EndOfProcess().at("verified"), "on");
}

}  // namespace
