#include "support/outcome.h"
#include "vek/err.h"

// Every outcome of a run, whole: each query, exchange, child process and sleep in its order and nothing else,
// the job log, the failures in the log file, and what the write-back changes of the record.
namespace {

using ambrin_test::Changed;
using ambrin_test::FakeHeader;
using ambrin_test::Join;
using ambrin_test::JsonAnswer;
using ambrin_test::kAuthorizationLog;
using ambrin_test::kAuthorizations;
using ambrin_test::kBegin;
using ambrin_test::kDefaultAccount;
using ambrin_test::kDefaultKid;
using ambrin_test::kDerCommand;
using ambrin_test::kDirectoryUrl;
using ambrin_test::kFinalizeUrl;
using ambrin_test::kNewAccount;
using ambrin_test::kNewAccountMade;
using ambrin_test::kNewOrder;
using ambrin_test::kOrder;
using ambrin_test::kOrderLog;
using ambrin_test::kReadJob;
using ambrin_test::kRefusal;
using ambrin_test::kRefusalText;
using ambrin_test::kStoredAccount;
using ambrin_test::kStoredKid;
using ambrin_test::kThumbprint;
using ambrin_test::kTwoContents;
using ambrin_test::Lines;
using ambrin_test::Outcome;
using testing::ElementsAre;
using testing::IsEmpty;
using vek_double::FakePem;

// --- before the account

// Behaviours of: Outcomes, each with everything asked and everything changed

// Behaviour: A record that was never read is written back ...
// Behaviour: A run with a missing id still writes the ...
TEST_F(Outcome, OfAMissingId) {
    EXPECT_EQ(Run("0"), 1);
    EXPECT_THAT(Story(), IsEmpty());
    EXPECT_THAT(Failures(), ElementsAre("3 Certificate ID is missed"));
    EXPECT_THAT(JobLog(), IsEmpty());
    job.clear();
    EXPECT_EQ(Changes(), (Changed{{"elid", "0"}}));
}

// Behaviour: A negative id is asked for like any other
TEST_F(Outcome, OfANegativeIdIsThePanelsAnswer) {
    world.AlwaysPanel("func=ambrin.data.edit&elid=-7&out=xml", [](const std::string&) -> std::string {
        throw vek_err::Error::Reported("missed", "no such job");
    });
    EXPECT_THROW(Run("-7"), vek_err::Error);
    EXPECT_THAT(Story(), ElementsAre("panel func=ambrin.data.edit&elid=-7&out=xml"));
}

// Behaviour: A verified job is left as it is and written ...
TEST_F(Outcome, OfAVerifiedJob) {
    job["verified"] = "on";
    job["challenges"] = "[]\n";
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(Story(), ElementsAre(kReadJob));
    EXPECT_THAT(Failures(), ElementsAre("4 'shop.example' cert already verified"));
    EXPECT_THAT(JobLog(), IsEmpty());
    EXPECT_THAT(Changes(), IsEmpty());
}

// Behaviour: A timed-out job is stopped with an empty ...
TEST_F(Outcome, OfATimedOutHttpJob) {
    MakeSecondRun();
    job["time_started"] = "2030-05-31 12:00:00";
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(Story(), Join({{kReadJob}, ToldOfTheEnd("")}));
    EXPECT_THAT(Failures(), IsEmpty());
    EXPECT_THAT(JobLog(), ElementsAre("failed,timeout_error,"));
    EXPECT_EQ(Changes(), (Changed{{"failed", "on"}}));
}

// Behaviour: A timed-out dns job has its published records ...
// Behaviour: A time-out changes nothing in the record ...
TEST_F(Outcome, OfATimedOutDnsJob) {
    MakeSecondRun();
    job["check_type"] = "dns";
    job["time_started"] = "2030-05-31 12:00:00";
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(Story(), Join({{kReadJob}, kThumbprint, kTwoContents, RecordsRemoved(), ToldOfTheEnd("")}));
    EXPECT_THAT(JobLog(), ElementsAre("failed,timeout_error,"));
    EXPECT_EQ(Changes(), (Changed{{"failed", "on"}}));
}

// Behaviour: A timed-out dns job whose list is empty or ...
TEST_F(Outcome, OfATimedOutDnsJobWhoseListIsEmptyOrCannotBeMade) {
    for (const std::string challenges : {"[]\n", ""}) {
        MakeSecondRun();
        world.ForgetCalls();
        job["check_type"] = "dns";
        job["time_started"] = "2030-05-31 12:00:00";
        job["challenges"] = challenges;
        EXPECT_EQ(Run(), 0);
        EXPECT_EQ(world.Lines({"panel"}).size(), 3U) << "the job and two notifications";
        EXPECT_EQ(Changes(), (Changed{{"failed", "on"}}));
    }
}

// Behaviour: A timed-out job of any check type but exactly ...
TEST_F(Outcome, OfATimedOutJobOfAnotherCheckTypeRemovesNothing) {
    for (const std::string type : {"DNS", "dns-01", "dns ", ""}) {
        MakeSecondRun();
        world.ForgetCalls();
        job["check_type"] = type;
        job["time_started"] = "2030-05-31 12:00:00";
        EXPECT_EQ(Run(), 0);
        EXPECT_EQ(Story().size(), 3U) << type;
        EXPECT_EQ(Changes(), (Changed{{"failed", "on"}}));
    }
}

// Behaviour: An error of the CSR ends the run by the panel's ...
TEST_F(Outcome, OfACsrThatCannotBeMade) {
    world.AlwaysPanel("func=sslcert.csr.edit&domain=*", [](const std::string&) -> std::string {
        throw vek_err::Error::Reported("value", "the panel says no");
    });
    EXPECT_THROW(Run(), vek_err::Error);
    EXPECT_EQ(Story(), (Lines{kBegin[0], kBegin[1]}));
    EXPECT_THAT(JobLog(), IsEmpty());
    EXPECT_EQ(Changes(), (Changed{{"attempt_count", "1"}}));
}

// Behaviour: Nobody looks at the CSR before it is converted
TEST_F(Outcome, OfAnEmptyCsrIsWhatTheToolMakesOfIt) {
    world.AlwaysPanel("func=sslcert.csr.edit&out=xml&elid=shop.example",
                      [](const std::string&) { return "<doc/>"; });
    world.AlwaysChild(kDerCommand, [](const std::string& pem) {
        return vek_double::ChildAnswer{"", pem.empty() ? 1 : 0};
    });
    EXPECT_THROW(Run(), vek_err::Error);
    EXPECT_EQ(Story().back(), "child " + kDerCommand) << "nothing has looked at it before";
}

// Behaviour: Every run past the time-out check counts one attempt
// Behaviour: Directory refused, or with an error object: status 1, no further line, attempt counted
// Behaviour: The CSR is made, read and removed before ...
TEST_F(Outcome, OfARefusedDirectory) {
    world.AlwaysHttp("GET " + kDirectoryUrl, [](const std::string&) { return JsonAnswer(403, kRefusal); });
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), kBegin);
    EXPECT_THAT(Failures(), IsEmpty());
    EXPECT_THAT(JobLog(), ElementsAre("failed,acme_request_error," + kRefusalText));
    EXPECT_EQ(Changes(), (Changed{{"attempt_count", "1"}}));
}

// Behaviour: Authority unreachable: status 1, one http_query_error entry with the address, attempt counted
TEST_F(Outcome, OfAnUnreachableAuthority) {
    world.AlwaysHttp("GET " + kDirectoryUrl, [](const std::string&) -> vek_double::HttpAnswer {
        throw vek_err::Error("http", "exchange", "no route");
    });
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), kBegin);
    EXPECT_THAT(Failures(), IsEmpty());
    EXPECT_THAT(JobLog(),
                ElementsAre("failed,http_query_error,http: exchange: no route<br>url: " + kDirectoryUrl));
    EXPECT_EQ(Changes(), (Changed{{"attempt_count", "1"}}));
}

// --- account and order

class AccountOutcome : public Outcome {
protected:
    AccountOutcome() {
        job["kid"] = kStoredKid;
        job["acmekey"] = FakePem("stored");
        job["modulus"] = FakeHeader(FakePem("stored"));
        job["max_account_check_attempts"] = "3";
    }
};

// Behaviours of: Course of a run

// Behaviour: The account cascade is: stored account, default account, retry in a later run, registration
// Behaviour: Accounts failed within the limit: status ...
TEST_F(AccountOutcome, OfAccountsToBeTriedAgain) {
    Object(kStoredKid, 403, kRefusal);
    Object(kDefaultKid, 403, kRefusal);
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(Story(), Join({kBegin, kStoredAccount, kDefaultAccount}));
    EXPECT_THAT(Failures(), ElementsAre("4 Account check failed. Need retry"));
    EXPECT_THAT(JobLog(), ElementsAre("failed,acme_request_error," + kRefusalText,
                                      "failed,acme_request_error," + kRefusalText));
    Changed changes = AndTheDefaultAccount({{"attempt_count", "1"}});
    changes["account_check_count"] = "3";
    EXPECT_EQ(Changes(), changes);
}

// Behaviour: The account cascade is: stored account, default ...
// Behaviour: Accounts failed past the limit: a new account ...
TEST_F(AccountOutcome, OfAccountsPastTheLimit) {
    job["account_check_count"] = "3";
    Object(kStoredKid, 200, R"({"status":"deactivated"})");
    Object(kDefaultKid, 200, R"({"status":"revoked"})");
    Object(kNewAccount, 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), Join({kBegin, kStoredAccount, kDefaultAccount, kNewAccountMade}));
    EXPECT_THAT(Failures(), ElementsAre("4 Registration failed"));
    EXPECT_THAT(JobLog(),
                ElementsAre("processing,registration_try,", "failed,registration_fail," + kRefusalText));
    EXPECT_EQ(Changes(), (Changed{{"account_check_count", "4"},
                                  {"acmekey", FakePem("1")},
                                  {"attempt_count", "1"},
                                  {"kid", ""},
                                  {"modulus", FakeHeader(FakePem("1"))}}));
}

// Behaviour: A stored account that fails gives way to the default account
TEST_F(AccountOutcome, OfAStoredAccountThatGivesWayToTheDefaultOne) {
    Object(kStoredKid, 403, kRefusal);
    Object(kNewOrder, 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), Join({kBegin, kStoredAccount, kDefaultAccount, kOrder}));
    EXPECT_EQ(Changes(), AndTheDefaultAccount({{"attempt_count", "1"}}));
}

// Behaviours of: Outcomes, each with everything asked and everything changed

// Behaviour: Registration refused: status 1, "Registration failed", the new key kept
TEST_F(Outcome, OfARefusedRegistration) {
    job.erase("default_pem");
    Object(kNewAccount, 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), Join({kBegin, kNewAccountMade}));
    EXPECT_THAT(Failures(), ElementsAre("4 Registration failed"));
    EXPECT_THAT(JobLog(),
                ElementsAre("processing,registration_try,", "failed,registration_fail," + kRefusalText));
    EXPECT_EQ(
        Changes(),
        (Changed{{"acmekey", FakePem("1")}, {"attempt_count", "1"}, {"modulus", FakeHeader(FakePem("1"))}}));
}

// Behaviour: Order refused: status 1, "Authorisations is empty", account kept, no order
TEST_F(Outcome, OfARefusedOrder) {
    Object(kNewOrder, 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), Join({kBegin, kDefaultAccount, kOrder}));
    EXPECT_THAT(Failures(), ElementsAre("4 Authorisations is empty"));
    EXPECT_THAT(JobLog(), ElementsAre("failed,order_failed," + kRefusalText));
    EXPECT_EQ(Changes(), AndTheDefaultAccount({{"attempt_count", "1"}}));
}

// Behaviour: Order without authorizations: status 1, "Authorisations is empty", order kept
TEST_F(Outcome, OfAnOrderWithoutAuthorizations) {
    Object(kNewOrder, 201, R"({"authorizations":[],"finalize":")" + kFinalizeUrl + "\"}",
           "Location: https://ca.test/order/1\r\n");
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), Join({kBegin, kDefaultAccount, kOrder}));
    EXPECT_THAT(Failures(), ElementsAre("4 Authorisations is empty"));
    EXPECT_EQ(JobLog(), kOrderLog);
    EXPECT_EQ(Changes(), AndTheOrder(AndTheDefaultAccount({{"attempt_count", "1"}})));
}

// Behaviour: Authorization refused: status 1, "Failed to get challenges", order kept, no challenges stored
TEST_F(Outcome, OfARefusedAuthorization) {
    Object("https://ca.test/authz/2", 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), Join({kBegin, kDefaultAccount, kOrder, kAuthorizations}));
    EXPECT_THAT(Failures(), ElementsAre("4 Failed to get challenges"));
    EXPECT_EQ(JobLog(),
              Join({kOrderLog,
                    kAuthorizationLog,
                    {"processing,authorization_try,", "failed,authorization_fail," + kRefusalText}}));
    EXPECT_EQ(Changes(), AndTheOrder(AndTheDefaultAccount({{"attempt_count", "1"}})));
}

}  // namespace
