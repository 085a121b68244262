#include "flow/account.h"

#include <limits>

#include "support/job_test.h"
#include "vek/err.h"
#include "vek/proc.h"

namespace {

using ambrin_test::FakeHeader;
using ambrin_test::JobTest;
using ambrin_test::JsonAnswer;
using ambrin_test::kDefaultKid;
using ambrin_test::kKeyDumpCommand;
using ambrin_test::kNewAccount;
using ambrin_test::kStoredKid;
using testing::ElementsAre;
using testing::IsEmpty;
using vek_double::FakePem;

class CheckAccountTest : public JobTest {
protected:
    CheckAccountTest() {
        StoreAccount();
        AnswerNonces();
    }

    bool CheckAnsweredBy(int status, const std::string& body) {
        world.AnswerHttp("POST " + kStoredKid, JsonAnswer(status, body));
        return CheckAccount(params);
    }
};

// Behaviours of: Account check and registration

// Behaviour: A job without an account fails its check without a request, even when checks are to be skipped
TEST_F(CheckAccountTest, JobWithoutAccountFailsWithoutARequest) {
    ambrin_data.kid.clear();
    EXPECT_FALSE(CheckAccount(params));
    ambrin_data.skip_account_check = true;
    EXPECT_FALSE(CheckAccount(params)) << "skipping the check saves no job that has no account";
    EXPECT_THAT(world.calls(), IsEmpty());
}

// Behaviour: A check that is to be skipped succeeds without a request
TEST_F(CheckAccountTest, SkippedCheckSucceedsWithoutARequest) {
    ambrin_data.skip_account_check = true;
    EXPECT_TRUE(CheckAccount(params));
    EXPECT_THAT(world.calls(), IsEmpty());
}

// Behaviour: An account is checked by one signed POST to its URL, with the payload as the caller left it
TEST_F(CheckAccountTest, ValidAccountIsAskedOnceWithThePayloadAsItIs) {
    EXPECT_TRUE(CheckAnsweredBy(200, R"({"status":"valid"})"));
    EXPECT_THAT(Story(), ElementsAre("nonce", "POST " + kStoredKid + " null"));
    EXPECT_EQ(params.url, kStoredKid);
    EXPECT_TRUE(params.payload.isNull());
    EXPECT_EQ(params.error_name, "");
    EXPECT_THAT(JobLog(), IsEmpty());
}

// Behaviour: An account is checked by one signed POST ...
TEST_F(CheckAccountTest, CallersPayloadAndErrorNameAreUsed) {
    params.payload["a"] = 1;
    params.error_name = "mine";
    EXPECT_FALSE(CheckAnsweredBy(403, "{}"));
    EXPECT_THAT(Story(), ElementsAre("nonce", "POST " + kStoredKid + " {\"a\":1}"));
    EXPECT_TRUE(JobLog().at(0).starts_with("failed,mine,"));
}

// Behaviour: Only the status "valid", as a string, makes an account valid
TEST_F(CheckAccountTest, AnyOtherStatusFails) {
    for (const std::string body : {R"({"status":"deactivated"})", R"({"status":"Valid"})",
                                   R"({"status":"valid "})", R"({"status":["valid"]})", R"({"status":true})",
                                   R"({})", R"(["valid"])", R"("valid")", "valid", "", R"({"contact":[]})"})
        EXPECT_FALSE(CheckAnsweredBy(200, body)) << body;
    EXPECT_THAT(JobLog(), IsEmpty());
}

// Behaviour: A refused check fails under the default error name
TEST_F(CheckAccountTest, RefusalFailsUnderTheDefaultName) {
    EXPECT_FALSE(CheckAnsweredBy(401, R"({"status":401,"detail":"unknown"})"));
    EXPECT_THAT(JobLog(),
                ElementsAre("failed,acme_request_error,<p><b>Return code:</b> 401</p></br><p><b>Details:</b> "
                            "unknown</p>"));
}

// Behaviour: An error object outweighs a valid status
TEST_F(CheckAccountTest, ErrorMemberOutweighsAValidStatus) {
    EXPECT_FALSE(CheckAnsweredBy(200, R"({"status":"valid","error":{}})"));
}

// Behaviour: A failed exchange fails the check
TEST_F(CheckAccountTest, FailedExchangeFails) {
    world.FailHttp("POST " + kStoredKid, "timed out");
    EXPECT_FALSE(CheckAccount(params));
    EXPECT_THAT(JobLog(), ElementsAre("failed,http_query_error,timed out<br>url: " + kStoredKid));
}

// Behaviour: An unreadable key travels to the caller
TEST_F(CheckAccountTest, UnreadableKeyTravelsToTheCaller) {
    ambrin_data.acmekey = "no key";
    EXPECT_THROW(CheckAccount(params), vek_err::Error);
}

class CheckDefaultAccountTest : public CheckAccountTest {
protected:
    CheckDefaultAccountTest() {
        ambrin_data.default_kid = kDefaultKid;
        ambrin_data.default_pem = FakePem("default");
        AnswerKeyDumps();
    }

    void ExpectStoredAccount() {
        EXPECT_EQ(ambrin_data.kid, kStoredKid);
        EXPECT_EQ(ambrin_data.acmekey, FakePem("stored"));
        EXPECT_EQ(ambrin_data.modulus, FakeHeader(FakePem("stored")));
    }

    void ExpectDefaultAccount() {
        EXPECT_EQ(ambrin_data.kid, kDefaultKid);
        EXPECT_EQ(ambrin_data.acmekey, FakePem("default"));
        EXPECT_EQ(ambrin_data.modulus, FakeHeader(FakePem("default")));
    }
};

// Behaviour: Without a default key the default account changes nothing and asks nothing
TEST_F(CheckDefaultAccountTest, PanelWithoutDefaultKeyChangesNothing) {
    ambrin_data.default_pem.clear();
    EXPECT_FALSE(CheckDefaultAccount(params));
    ExpectStoredAccount();
    EXPECT_THAT(world.calls(), IsEmpty());
}

// Behaviour: A default account that is the one in use is not asked again
TEST_F(CheckDefaultAccountTest, DefaultAccountThatHasJustFailedIsNotAskedAgain) {
    ambrin_data.default_kid = kStoredKid;
    EXPECT_FALSE(CheckDefaultAccount(params));
    ExpectStoredAccount();
    EXPECT_THAT(world.calls(), IsEmpty());
}

// Behaviour: The default account replaces key id, key and key header of the job, and is checked like any
//   other
TEST_F(CheckDefaultAccountTest, ValidDefaultAccountReplacesTheStoredOne) {
    world.AnswerHttp("POST " + kDefaultKid, JsonAnswer(200, R"({"status":"valid"})"));
    EXPECT_TRUE(CheckDefaultAccount(params));
    ExpectDefaultAccount();
    EXPECT_THAT(Story(), ElementsAre("child " + kKeyDumpCommand, "nonce", "POST " + kDefaultKid + " null"));
    EXPECT_EQ(Requests().at(0).signature,
              vek_double::FakeSignature(FakePem("default"), Requests().at(0).signing_input));
}

// Behaviour: The default account stays in the record when its check fails
TEST_F(CheckDefaultAccountTest, DefaultAccountStaysWhenItsCheckFails) {
    world.AnswerHttp("POST " + kDefaultKid, JsonAnswer(403, "{}"));
    EXPECT_FALSE(CheckDefaultAccount(params));
    ExpectDefaultAccount();
}

// Behaviour: A default account is taken without a request when checks are to be skipped
TEST_F(CheckDefaultAccountTest, SkippedCheckTakesTheDefaultAccountWithoutARequest) {
    ambrin_data.kid.clear();
    ambrin_data.skip_account_check = true;
    EXPECT_TRUE(CheckDefaultAccount(params));
    ExpectDefaultAccount();
    EXPECT_THAT(Story(), ElementsAre("child " + kKeyDumpCommand));
}

// Behaviour: A default key without a key id empties the job's own key id and fails
TEST_F(CheckDefaultAccountTest, DefaultKeyWithoutKeyIdEmptiesTheJobsOwn) {
    ambrin_data.default_kid.clear();
    EXPECT_FALSE(CheckDefaultAccount(params));
    EXPECT_EQ(ambrin_data.kid, "");
    EXPECT_EQ(ambrin_data.acmekey, FakePem("default"));
    EXPECT_THAT(Story(), ElementsAre("child " + kKeyDumpCommand));
}

// Behaviour: A default account that is the one in use ...
TEST_F(CheckDefaultAccountTest, JobWithoutAccountAndDefaultWithoutKeyIdAreTheSame) {
    ambrin_data.kid.clear();
    ambrin_data.default_kid.clear();
    EXPECT_FALSE(CheckDefaultAccount(params));
    EXPECT_EQ(ambrin_data.acmekey, FakePem("stored"));
    EXPECT_THAT(world.calls(), IsEmpty());
}

// Behaviour: The error of an unreadable default key travels to the caller; the record holds the default key
//   id and key by then, and the key header that it had
TEST_F(CheckDefaultAccountTest, UnreadableDefaultKeyTravelsToTheCallerWithTheDefaultKeyInTheRecord) {
    world.AlwaysChild(kKeyDumpCommand, [](const std::string&) { return vek_double::ChildAnswer{"", 1}; });
    EXPECT_THROW(CheckDefaultAccount(params), vek_err::Error);
    EXPECT_EQ(ambrin_data.kid, kDefaultKid);
    EXPECT_EQ(ambrin_data.acmekey, FakePem("default"));
    EXPECT_EQ(ambrin_data.modulus, FakeHeader(FakePem("stored")));
    EXPECT_THAT(Story(), ElementsAre("child " + kKeyDumpCommand));
}

// Behaviour: A default key stays in the record, too, when the tool that reads it does not start
TEST_F(CheckDefaultAccountTest, ToolThatDoesNotStartLeavesTheDefaultKeyInTheRecord) {
    world.FailAt("child", 1, vek_double::Failure::kError);
    EXPECT_THROW(CheckDefaultAccount(params), vek_err::Error);
    EXPECT_EQ(ambrin_data.kid, kDefaultKid);
    EXPECT_EQ(ambrin_data.acmekey, FakePem("default"));
    EXPECT_EQ(ambrin_data.modulus, FakeHeader(FakePem("stored")));
}

// Behaviour: An interruption while the default key is read leaves the job's own account whole
TEST_F(CheckDefaultAccountTest, InterruptedReadingOfTheDefaultKeyLeavesTheStoredAccountWhole) {
    world.FailAt("child", 1, vek_double::Failure::kInterrupted);
    EXPECT_THROW(CheckDefaultAccount(params), vek_proc::Interrupted);
    ExpectStoredAccount();
}

// Behaviour: An interruption while the default account is checked leaves the default account whole
TEST_F(CheckDefaultAccountTest, InterruptedCheckLeavesTheDefaultAccountWhole) {
    world.FailAt("http", 1, vek_double::Failure::kInterrupted);
    EXPECT_THROW(CheckDefaultAccount(params), vek_proc::Interrupted);
    ExpectDefaultAccount();
}

class RetryOfAccountCheck : public CheckAccountTest {};

// Behaviour: A job without key id or key has nothing to retry, and nothing is counted
TEST_F(RetryOfAccountCheck, JobWithoutCompleteAccountHasNothingToRetry) {
    ambrin_data.max_account_check_attempts = 5;
    ambrin_data.kid.clear();
    EXPECT_FALSE(NeedRetryAccountCheck());
    ambrin_data.kid = kStoredKid;
    ambrin_data.acmekey.clear();
    EXPECT_FALSE(NeedRetryAccountCheck());
    EXPECT_EQ(ambrin_data.account_check_count, 0);
}

// Behaviour: A limit of N allows N retries; the next failure registers
TEST_F(RetryOfAccountCheck, LimitOfThreeGivesThreeRetries) {
    ambrin_data.max_account_check_attempts = 3;
    EXPECT_TRUE(NeedRetryAccountCheck());
    EXPECT_TRUE(NeedRetryAccountCheck());
    EXPECT_TRUE(NeedRetryAccountCheck());
    EXPECT_EQ(ambrin_data.account_check_count, 3);
    EXPECT_FALSE(NeedRetryAccountCheck());
    EXPECT_EQ(ambrin_data.account_check_count, 4);
    EXPECT_THAT(world.calls(), IsEmpty());
}

// Behaviour: Count and limit are compared as signed numbers, and the count does not overflow
// Behaviour: A limit of N allows N retries; the next failure ...
TEST_F(RetryOfAccountCheck, LimitOfZeroOrLessGivesNone) {
    EXPECT_FALSE(NeedRetryAccountCheck());
    EXPECT_EQ(ambrin_data.account_check_count, 1);
    ambrin_data.max_account_check_attempts = -1;
    ambrin_data.account_check_count = -3;
    EXPECT_TRUE(NeedRetryAccountCheck()) << "the comparison is signed";
}

// Behaviour: Count and limit are compared as signed numbers ...
TEST_F(RetryOfAccountCheck, CountAtItsLimitDoesNotOverflow) {
    ambrin_data.account_check_count = std::numeric_limits<std::int32_t>::max();
    NeedRetryAccountCheck();
    EXPECT_EQ(ambrin_data.account_check_count, std::numeric_limits<std::int32_t>::max());
}

class RegistrationTest : public JobTest {
protected:
    RegistrationTest() {
        StoreAccount();
        AnswerNonces();
        AnswerKeyDumps();
    }

    bool RegisterAnsweredBy(int status, const std::string& head,
                            const std::string& body = R"({"status":"valid"})") {
        world.AnswerHttp("POST " + kNewAccount, JsonAnswer(status, body, head));
        return Registration(params);
    }

    void ExpectNewKey() {
        EXPECT_EQ(ambrin_data.acmekey, FakePem("1"));
        EXPECT_EQ(ambrin_data.modulus, FakeHeader(FakePem("1")));
    }
};

const std::string kLocation = "Location: https://ca.test/account/new\r\n";

// Behaviour: Registration goes to "newAccount" under the error name "registration_fail"
// Behaviour: The registration is logged as registration_try ahead of its request, and traced
// Behaviour: A created account is logged as registration_success, its "location" becomes the key id, and it
//   is to become the panel's default
TEST_F(RegistrationTest, CreatedAccountIsKeptAndBecomesTheDefault) {
    EXPECT_TRUE(RegisterAnsweredBy(201, kLocation));
    EXPECT_EQ(ambrin_data.kid, "https://ca.test/account/new");
    ExpectNewKey();
    EXPECT_TRUE(ambrin_data.update_default_account);
    EXPECT_THAT(JobLog(), ElementsAre("processing,registration_try,", "processing,registration_success,"));
    EXPECT_EQ(params.error_name, "registration_fail");
    EXPECT_EQ(params.url, "newAccount");
}

// Behaviour: Registration agrees to the terms of service and is signed by the new key itself
// Behaviour: Registration goes to "newAccount" under the ...
TEST_F(RegistrationTest, RequestIsSignedByTheNewKeyItself) {
    RegisterAnsweredBy(201, kLocation);
    EXPECT_THAT(Story(), ElementsAre("child " + kKeyDumpCommand, "nonce",
                                     "POST " + kNewAccount + " {\"termsOfServiceAgreed\":true}"));
    const auto request = Requests().at(0);
    EXPECT_FALSE(request.header.isMember("kid"));
    EXPECT_TRUE(request.header.isMember("jwk"));
    EXPECT_EQ(request.signature, vek_double::FakeSignature(FakePem("1"), request.signing_input));
}

// Behaviour: The registration is logged as registration_try ...
TEST_F(RegistrationTest, TracesTheNewAccount) {
    RegisterAnsweredBy(201, kLocation);
    EXPECT_EQ(Traces().front(), "Ambrin registration");
    EXPECT_EQ(Traces().back(), "registration kid 'https://ca.test/account/new'");
}

// Behaviour: An account that the authority knew is logged as registration_exist and taken likewise
TEST_F(RegistrationTest, AccountThatTheAuthorityKnewIsTakenLikewise) {
    EXPECT_TRUE(RegisterAnsweredBy(200, kLocation));
    EXPECT_EQ(ambrin_data.kid, "https://ca.test/account/new");
    EXPECT_TRUE(ambrin_data.update_default_account);
    EXPECT_THAT(JobLog(), ElementsAre("processing,registration_try,", "processing,registration_exist,"));
}

// Behaviour: Only the status decides: a 201 with an error object is a success, after its registration_fail
//   entry
TEST_F(RegistrationTest, OnlyTheStatusDecides) {
    EXPECT_TRUE(RegisterAnsweredBy(201, kLocation, R"({"error":{"status":403,"detail":"x"}})"));
    EXPECT_EQ(ambrin_data.kid, "https://ca.test/account/new");
    EXPECT_THAT(
        JobLog(),
        ElementsAre("processing,registration_try,",
                    "failed,registration_fail,<p><b>Return code:</b> 403</p></br><p><b>Details:</b> x</p>",
                    "processing,registration_success,"));
}

// Behaviour: Any other good status fails without a further entry
TEST_F(RegistrationTest, OtherGoodStatusesFailSilently) {
    for (const int status : {202, 204, 301}) {
        ambrin_data.log.clear();
        EXPECT_FALSE(RegisterAnsweredBy(status, kLocation));
        EXPECT_EQ(ambrin_data.kid, "");
        EXPECT_THAT(JobLog(), ElementsAre("processing,registration_try,")) << status;
        EXPECT_FALSE(ambrin_data.update_default_account);
    }
    EXPECT_EQ(ambrin_data.acmekey, FakePem("3")) << "the newest key stays";
}

// Behaviour: A refusal is logged as registration_fail; the new key stays, without a key id
TEST_F(RegistrationTest, RefusalKeepsTheNewKeyWithoutAKeyId) {
    EXPECT_FALSE(RegisterAnsweredBy(403, kLocation, R"({"status":403,"detail":"no"})"));
    EXPECT_EQ(ambrin_data.kid, "");
    ExpectNewKey();
    EXPECT_FALSE(ambrin_data.update_default_account);
    EXPECT_THAT(
        JobLog(),
        ElementsAre("processing,registration_try,",
                    "failed,registration_fail,<p><b>Return code:</b> 403</p></br><p><b>Details:</b> no</p>"));
}

// Behaviour: A failed exchange fails the registration
TEST_F(RegistrationTest, FailedExchangeFails) {
    world.FailHttp("POST " + kNewAccount, "timed out");
    EXPECT_FALSE(Registration(params));
    EXPECT_THAT(JobLog(), ElementsAre("processing,registration_try,",
                                      "failed,http_query_error,timed out<br>url: " + kNewAccount));
}

// Behaviour: A success without "location" leaves an empty key id
TEST_F(RegistrationTest, AnswerWithoutLocationIsASuccessWithoutKeyId) {
    EXPECT_TRUE(RegisterAnsweredBy(201, ""));
    EXPECT_EQ(ambrin_data.kid, "");
    EXPECT_TRUE(ambrin_data.update_default_account);
}

// Behaviour: A registration is logged as tried before its new key is made
TEST_F(RegistrationTest, TryIsLoggedBeforeTheNewKeyIsMade) {
    world.FailAt("generate key", 1, vek_double::Failure::kError);
    EXPECT_THROW(Registration(params), vek_err::Error);
    EXPECT_THAT(JobLog(), ElementsAre("processing,registration_try,"));
}

// Behaviour: A key that cannot be made travels to the caller; the old key stays
TEST_F(RegistrationTest, KeyThatCannotBeMadeTravelsToTheCaller) {
    world.FailAt("generate key", 1, vek_double::Failure::kError);
    EXPECT_THROW(Registration(params), vek_err::Error);
    EXPECT_EQ(ambrin_data.acmekey, FakePem("stored"));
    EXPECT_EQ(ambrin_data.kid, "");
    EXPECT_THAT(Story(), IsEmpty());
}

}  // namespace
