#include <initializer_list>

#include "support/issuance.h"
#include "vek/err.h"

// Every outcome of a run, whole: each query, exchange, child process and sleep in its order and nothing else,
// the job log, the failures in the log file, and what the write-back changes of the record.
namespace {

using ambrin_test::FakeDigestText;
using ambrin_test::FakeHeader;
using ambrin_test::IssuanceTest;
using ambrin_test::JsonAnswer;
using ambrin_test::kCertificateUrl;
using ambrin_test::kDefaultKid;
using ambrin_test::kDerCommand;
using ambrin_test::kDigCommand;
using ambrin_test::kDigestCommand;
using ambrin_test::kDirectoryUrl;
using ambrin_test::kFinalizeUrl;
using ambrin_test::kHardReplace;
using ambrin_test::kKeyDumpCommand;
using ambrin_test::kNewAccount;
using ambrin_test::kNewOrder;
using ambrin_test::kStoredKid;
using testing::ElementsAre;
using testing::IsEmpty;
using vek_double::FakePem;

using Lines = std::vector<std::string>;
using Changed = std::map<std::string, std::string>;

Lines Join(std::initializer_list<Lines> parts) {
    Lines joined;
    for (const Lines& part : parts) joined.insert(joined.end(), part.begin(), part.end());
    return joined;
}

const std::string kRefusal = R"({"status":403,"detail":"no"})";
const std::string kRefusalText = "<p><b>Return code:</b> 403</p></br><p><b>Details:</b> no</p>";
const std::string kReadJob = "panel func=ambrin.data.edit&elid=7&out=xml";
const std::string kFirstRecord = "_acme-challenge.shop.example.";
const std::string kSecondRecord = "_acme-challenge.www.shop.example.";

const Lines kBegin{
    kReadJob,
    "panel func=sslcert.csr.edit&domain=shop.example%20www.shop.example&su=ann&keysize=2048",
    "panel func=sslcert.csr.edit&out=xml&elid=shop.example",
    "panel func=sslcert.csr.delete&elid=shop.example",
    "GET " + kDirectoryUrl,
};
const Lines kStoredAccount{"nonce", "POST " + kStoredKid + " null"};
const Lines kDefaultAccount{"child " + kKeyDumpCommand, "nonce", "POST " + kDefaultKid + " null"};
const Lines kNewAccountMade{"child " + kKeyDumpCommand, "nonce",
                            "POST " + kNewAccount + " {\"termsOfServiceAgreed\":true}"};
const Lines kOrder{"nonce", "POST " + kNewOrder +
                                R"( {"identifiers":[{"type":"dns","value":"shop.example"},)"
                                R"({"type":"dns","value":"www.shop.example"}]})"};
const Lines kAuthorizations{"nonce", "POST https://ca.test/authz/1 -", "nonce",
                            "POST https://ca.test/authz/2 -"};
const Lines kThumbprint{"child " + kDigestCommand};
const Lines kTwoContents{"child " + kDigestCommand, "child " + kDigestCommand};
const Lines kFinalization{"child " + kDerCommand, "nonce",
                          "POST " + kFinalizeUrl + R"( {"csr":"REVSIG9mIENTUg"})"};
const Lines kDownload{"nonce", "POST " + kCertificateUrl + " -"};
const Lines kInstallation{
    "panel "
    "func=sslcert.hardreplace&cacrt=ROOT&elid=ann%25%23%25shop.example&user=ann&crt=LEAF%0A%0AISSUER&key="
    "KEY&sok=ok"};

const Lines kOrderLog{"processing,order_success,"};
const Lines kAuthorizationLog{"processing,authorization_try,", "processing,authorization_success,"};
const Lines kPublicationLog{"processing,challenge_start,", "processing,challenge_created,"};
const Lines kAnswerLog{"processing,challenge_success,", "processing,challenge_success,"};
const Lines kFinalizationLog{"processing,cert_order_success,"};

class Outcome : public IssuanceTest {
protected:
    static Lines Answers(const std::string& type, const std::string& payload) {
        return {"nonce", "POST https://ca.test/" + type + "/1 " + payload, "nonce",
                "POST https://ca.test/" + type + "/2 " + payload};
    }

    static Lines Files(const std::string& action) {
        Lines queries;
        for (const std::string token : {"http1", "http2"})
            queries.push_back("panel func=ambrin_challenge&action=" + action +
                              "&user_name=ann&file_name=" + token + "&content=" + KeyAuthz(token));
        return queries;
    }

    static std::string Content(const std::string& token) { return FakeDigestText(KeyAuthz(token)); }

    static Lines RecordsMade() {
        const auto query = [](const std::string& name, const std::string& token) {
            return "panel sok=ok&rtype=txt&func=domain.record.edit&name=" + name +
                   "&plid=shop.example&su=ann&value=" + Content(token);
        };
        return {"panel func=domain&su=ann", query(kFirstRecord, "dns1"), "panel func=domain&su=ann",
                query(kSecondRecord, "dns2")};
    }

    static Lines RecordsRemoved() {
        const auto query = [](const std::string& name, const std::string& token) {
            return "panel sok=ok&rtype=txt&elid=" + name + "%20TXT%20%20" + Content(token) +
                   "&func=domain.record.delete&plid=shop.example&su=ann&value=" + Content(token);
        };
        return {"panel func=domain&su=ann", query(kFirstRecord, "dns1"), "panel func=domain&su=ann",
                query(kSecondRecord, "dns2")};
    }

    static Lines RecordsLookedUp() {
        return {"child " + kDigCommand + "'TXT' '" + kFirstRecord + "'",
                "child " + kDigCommand + "'TXT' '" + kSecondRecord + "'"};
    }

    /// The notifications of the owner, who sorts first, and of the administrator.
    static Lines Told(const std::string& level, const std::string& user_problem,
                      const std::string& admin_problem, const std::string& parameters) {
        const std::string query = "panel func=problems.register&sok=ok&id=000000000000000";
        return {query + "1&level=" + level + "&name=" + user_problem + "&owner=ann&" + parameters,
                query + "2&level=" + level + "&name=" + admin_problem + "&" + parameters};
    }

    static Lines ToldOfTheEnd(const std::string& error) {
        return Told("error", "ambrin_failed_user", "ambrin_failed_admin",
                    "param_error=" + error + "&param_name=shop.example");
    }

    static Lines ToldOfSuccess() {
        return Told("message", "ambrin_success", "ambrin_success", "param_name=shop.example");
    }

    Lines Failures() const {
        Lines failures;
        for (const std::string& line : LogLines())
            if (!line.starts_with("9 ") && !line.starts_with("8 ")) failures.push_back(line);
        return failures;
    }

    /// The values of the write-back that differ from what the run has read.
    Changed Changes() {
        const Changed unset{{"attempt_count", "0"}, {"account_check_count", "0"},     {"verified", "off"},
                            {"failed", "off"},      {"force_update", "off"},          {"processing", "off"},
                            {"elid", "7"},          {"update_default_account", "off"}};
        Changed changes;
        for (const auto& [key, value] : EndOfProcess()) {
            if (key == "func" || key == "sok" || key == "log") continue;
            const std::string before = job.contains(key)     ? job.at(key)
                                       : unset.contains(key) ? unset.at(key)
                                                             : "";
            if (value != before) changes[key] = value;
        }
        return changes;
    }

    /// These changes, and those of a first run that has taken the default account.
    static Changed AndTheDefaultAccount(Changed changes) {
        changes.insert({{"account_check_count", "0"},
                        {"kid", kDefaultKid},
                        {"acmekey", FakePem("default")},
                        {"modulus", FakeHeader(FakePem("default"))}});
        return changes;
    }

    static Changed AndTheOrder(Changed changes) {
        changes.insert({{"finalize", kFinalizeUrl}, {"finalize_check", "https://ca.test/order/1"}});
        return changes;
    }

    std::string StoredAuthorizations() const {
        return "[" + ambrin_test::AuthorizationText(1) + "," + ambrin_test::AuthorizationText(2) + "]\n";
    }
};

// --- before the account

TEST_F(Outcome, OfAMissingId) {
    EXPECT_EQ(Run("0"), 1);
    EXPECT_THAT(Story(), IsEmpty());
    EXPECT_THAT(Failures(), ElementsAre("3 Certificate ID is missed"));
    EXPECT_THAT(JobLog(), IsEmpty());
    job.clear();
    EXPECT_EQ(Changes(), (Changed{{"elid", "0"}}));
}

TEST_F(Outcome, OfANegativeIdIsThePanelsAnswer) {
    world.AlwaysPanel("func=ambrin.data.edit&elid=-7&out=xml", [](const std::string&) -> std::string {
        throw vek_err::Error::Reported("missed", "no such job");
    });
    EXPECT_THROW(Run("-7"), vek_err::Error);
    EXPECT_THAT(Story(), ElementsAre("panel func=ambrin.data.edit&elid=-7&out=xml"));
}

TEST_F(Outcome, OfAVerifiedJob) {
    job["verified"] = "on";
    job["challenges"] = "[]\n";
    EXPECT_EQ(Run(), 0);
    EXPECT_THAT(Story(), ElementsAre(kReadJob));
    EXPECT_THAT(Failures(), ElementsAre("4 'shop.example' cert already verified"));
    EXPECT_THAT(JobLog(), IsEmpty());
    EXPECT_THAT(Changes(), IsEmpty());
}

TEST_F(Outcome, OfATimedOutHttpJob) {
    MakeSecondRun();
    job["time_started"] = "2030-05-31 12:00:00";
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(Story(), Join({{kReadJob}, ToldOfTheEnd("")}));
    EXPECT_THAT(Failures(), IsEmpty());
    EXPECT_THAT(JobLog(), ElementsAre("failed,timeout_error,"));
    EXPECT_EQ(Changes(), (Changed{{"failed", "on"}}));
}

TEST_F(Outcome, OfATimedOutDnsJob) {
    MakeSecondRun();
    job["check_type"] = "dns";
    job["time_started"] = "2030-05-31 12:00:00";
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(Story(), Join({{kReadJob}, kThumbprint, kTwoContents, RecordsRemoved(), ToldOfTheEnd("")}));
    EXPECT_THAT(JobLog(), ElementsAre("failed,timeout_error,"));
    EXPECT_EQ(Changes(), (Changed{{"failed", "on"}}));
}

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

TEST_F(Outcome, OfACsrThatCannotBeMade) {
    world.AlwaysPanel("func=sslcert.csr.edit&domain=*", [](const std::string&) -> std::string {
        throw vek_err::Error::Reported("value", "the panel says no");
    });
    EXPECT_THROW(Run(), vek_err::Error);
    EXPECT_EQ(Story(), (Lines{kBegin[0], kBegin[1]}));
    EXPECT_THAT(JobLog(), IsEmpty());
    EXPECT_EQ(Changes(), (Changed{{"attempt_count", "1"}}));
}

TEST_F(Outcome, OfAnEmptyCsrIsWhatTheToolMakesOfIt) {
    world.AlwaysPanel("func=sslcert.csr.edit&out=xml&elid=shop.example",
                      [](const std::string&) { return "<doc/>"; });
    world.AlwaysChild(kDerCommand, [](const std::string& pem) {
        return vek_double::ChildAnswer{"", pem.empty() ? 1 : 0};
    });
    EXPECT_THROW(Run(), vek_err::Error);
    EXPECT_EQ(Story().back(), "child " + kDerCommand) << "nothing has looked at it before";
}

TEST_F(Outcome, OfARefusedDirectory) {
    world.AlwaysHttp("GET " + kDirectoryUrl, [](const std::string&) { return JsonAnswer(403, kRefusal); });
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), kBegin);
    EXPECT_THAT(Failures(), IsEmpty());
    EXPECT_THAT(JobLog(), ElementsAre("failed,acme_request_error," + kRefusalText));
    EXPECT_EQ(Changes(), (Changed{{"attempt_count", "1"}}));
}

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

TEST_F(AccountOutcome, OfAStoredAccountThatGivesWayToTheDefaultOne) {
    Object(kStoredKid, 403, kRefusal);
    Object(kNewOrder, 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), Join({kBegin, kStoredAccount, kDefaultAccount, kOrder}));
    EXPECT_EQ(Changes(), AndTheDefaultAccount({{"attempt_count", "1"}}));
}

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

TEST_F(Outcome, OfARefusedOrder) {
    Object(kNewOrder, 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), Join({kBegin, kDefaultAccount, kOrder}));
    EXPECT_THAT(Failures(), ElementsAre("4 Authorisations is empty"));
    EXPECT_THAT(JobLog(), ElementsAre("failed,order_failed," + kRefusalText));
    EXPECT_EQ(Changes(), AndTheDefaultAccount({{"attempt_count", "1"}}));
}

TEST_F(Outcome, OfAnOrderWithoutAuthorizations) {
    Object(kNewOrder, 201, R"({"authorizations":[],"finalize":")" + kFinalizeUrl + "\"}",
           "Location: https://ca.test/order/1\r\n");
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), Join({kBegin, kDefaultAccount, kOrder}));
    EXPECT_THAT(Failures(), ElementsAre("4 Authorisations is empty"));
    EXPECT_EQ(JobLog(), kOrderLog);
    EXPECT_EQ(Changes(), AndTheOrder(AndTheDefaultAccount({{"attempt_count", "1"}})));
}

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

// --- challenges

TEST_F(Outcome, OfAListThatCannotBeMade) {
    MakeSecondRun();
    job["modulus"] = "";
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), kBegin);
    EXPECT_THAT(Failures(), ElementsAre("4 Failed to prepare challenges list"));
    EXPECT_THAT(JobLog(), IsEmpty());
    EXPECT_EQ(Changes(), (Changed{{"attempt_count", "2"}}));
}

TEST_F(Outcome, OfPublishedRecords) {
    job["check_type"] = "dns";
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(Story(), Join({kBegin, kDefaultAccount, kOrder, kAuthorizations, kThumbprint, kTwoContents,
                             RecordsMade()}));
    EXPECT_THAT(Failures(), IsEmpty());
    EXPECT_EQ(JobLog(), Join({kOrderLog, kAuthorizationLog, kAuthorizationLog, kPublicationLog}));
    EXPECT_EQ(
        Changes(),
        AndTheOrder(AndTheDefaultAccount({{"attempt_count", "1"}, {"challenges", StoredAuthorizations()}})));
}

TEST_F(Outcome, OfMissingRecords) {
    MakeSecondRun();
    job["check_type"] = "dns";
    visible_records = {kFirstRecord};
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(Story(),
              Join({kBegin,
                    kThumbprint,
                    kTwoContents,
                    RecordsLookedUp(),
                    {"child " + kDigCommand + "'NS' 'shop.example'"},
                    Told("message", "ambrin_pause", "ambrin_pause",
                         "param_date=2030-06-01%2012%3A30%3A00&param_name=shop.example&param_ns=ns1.example.%"
                         "2C%20ns2.example.&param_records=" +
                             kSecondRecord + "%20TXT%20" + Content("dns2"))}));
    EXPECT_THAT(Failures(), IsEmpty());
    EXPECT_THAT(JobLog(), IsEmpty());
    EXPECT_EQ(Changes(), (Changed{{"attempt_count", "2"}, {"next_attempt", "2030-06-01 12:30:00"}}));
}

TEST_F(Outcome, OfAFailedChallenge) {
    Object("https://ca.test/http/1", 200, R"({"status":"invalid","error":{"status":403,"detail":"no"}})");
    EXPECT_EQ(Run(), 1);
    const Lines answers = Answers("http", "{}");
    EXPECT_EQ(Story(), Join({kBegin,
                             kDefaultAccount,
                             kOrder,
                             kAuthorizations,
                             kThumbprint,
                             Files("create"),
                             {answers[0], answers[1]},
                             Files("delete")}));
    EXPECT_THAT(Failures(), ElementsAre("4 Failed to process challenges"));
    EXPECT_EQ(JobLog(), Join({kOrderLog,
                              kAuthorizationLog,
                              kAuthorizationLog,
                              kPublicationLog,
                              {"failed,challenge_fail," + kRefusalText}}));
    EXPECT_EQ(Changes(), AndTheOrder(AndTheDefaultAccount({}))) << "the next run places a new order";
}

TEST_F(Outcome, OfAFailedChallengeInALaterRun) {
    MakeSecondRun();
    Object("https://ca.test/http/2", 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), Join({kBegin, kThumbprint, Answers("http", "null"), Files("delete")}));
    EXPECT_THAT(JobLog(),
                ElementsAre("processing,challenge_success,", "failed,challenge_fail," + kRefusalText));
    EXPECT_EQ(Changes(), (Changed{{"attempt_count", "0"}, {"challenges", ""}}));
}

// --- certificate

class CertificateOutcome : public Outcome {
protected:
    const Lines answered = Join({kBegin, kDefaultAccount, kOrder, kAuthorizations, kThumbprint,
                                 Files("create"), Answers("http", "{}"), Files("delete")});
    const Lines answer_log =
        Join({kOrderLog, kAuthorizationLog, kAuthorizationLog, kPublicationLog, kAnswerLog});
};

TEST_F(CertificateOutcome, OfARefusedFinalization) {
    Object(kFinalizeUrl, 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), Join({answered, kFinalization}));
    EXPECT_THAT(Failures(), ElementsAre("4 Failed to get cert url"));
    EXPECT_EQ(JobLog(), Join({answer_log, {"failed,cert_order_fail," + kRefusalText}}));
    EXPECT_EQ(Changes(), AndTheOrder(AndTheDefaultAccount({})));
}

TEST_F(CertificateOutcome, OfARefusedDownload) {
    Object(kCertificateUrl, 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), Join({answered, kFinalization, kDownload}));
    EXPECT_THAT(Failures(), ElementsAre("4 Failed to get cert"));
    EXPECT_EQ(JobLog(), Join({answer_log, kFinalizationLog, {"failed,cert_recive_failed," + kRefusalText}}));
    EXPECT_EQ(Changes(), AndTheOrder(AndTheDefaultAccount({})));
}

TEST_F(CertificateOutcome, OfAFailedInstallation) {
    job["force_update"] = "on";
    world.AlwaysPanel(kHardReplace, [](const std::string&) -> std::string {
        throw vek_err::Error::Reported("badkey", "the panel says no");
    });
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), Join({answered, kFinalization, kDownload, kInstallation,
                             ToldOfTheEnd("the%20panel%20says%20no")}));
    EXPECT_THAT(Failures(), IsEmpty());
    EXPECT_EQ(JobLog(), Join({answer_log,
                              kFinalizationLog,
                              {"success,cert_recived,", "failed,hardreplace_error,the panel says no"}}));
    EXPECT_EQ(Changes(), AndTheOrder(AndTheDefaultAccount({{"failed", "on"}})));
}

TEST_F(CertificateOutcome, OfAnInstallation) {
    job["force_update"] = "on";
    job["failed"] = "on";
    world.AlwaysPanel(kHardReplace, [](const std::string&) { return "<doc><warning>odd</warning></doc>"; });
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(Story(), Join({answered, kFinalization, kDownload, kInstallation, ToldOfSuccess()}));
    EXPECT_THAT(Failures(), IsEmpty());
    EXPECT_EQ(JobLog(), Join({answer_log, kFinalizationLog, {"success,cert_recived,"}}));
    EXPECT_EQ(Changes(),
              AndTheDefaultAccount({{"verified", "on"}, {"failed", "off"}, {"force_update", "off"}}));
}

TEST_F(Outcome, OfAnyRunIsAskedByOneClientAndToldByOneModule) {
    job["res_name"] = "reseller";
    EXPECT_EQ(Run(), 0);
    Run("0");
    for (const vek_double::Call& call : world.calls()) {
        if (call.kind == "panel") {
            EXPECT_EQ(call.detail, "zelvek/ambrin") << call.text;
        } else if (call.kind == "log") {
            EXPECT_EQ(call.detail, "zelvek/sslcert") << call.text;
        }
    }
}

TEST_F(Outcome, OfAnInstallationInALaterRun) {
    MakeSecondRun();
    job["check_type"] = "dns";
    job["next_attempt"] = "2030-06-01 11:30:00";
    visible_records = {kFirstRecord, kSecondRecord};
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(Story(), Join({kBegin, kThumbprint, kTwoContents, RecordsLookedUp(), Answers("dns", "null"),
                             RecordsRemoved(), kFinalization, kDownload, kInstallation, ToldOfSuccess()}));
    EXPECT_THAT(Failures(), IsEmpty());
    EXPECT_EQ(JobLog(), Join({kAnswerLog, kFinalizationLog, {"success,cert_recived,"}}));
    EXPECT_EQ(Changes(), (Changed{{"attempt_count", "0"},
                                  {"challenges", ""},
                                  {"finalize", ""},
                                  {"finalize_check", ""},
                                  {"verified", "on"}}));
}

}  // namespace
