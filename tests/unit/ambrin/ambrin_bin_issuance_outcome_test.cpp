#include "support/outcome.h"
#include "vek/err.h"

// The outcomes of runs that have come to the challenges or past them, whole.
namespace {

using ambrin_test::Changed;
using ambrin_test::Join;
using ambrin_test::kAnswerLog;
using ambrin_test::kAuthorizationLog;
using ambrin_test::kAuthorizations;
using ambrin_test::kBegin;
using ambrin_test::kCertificateUrl;
using ambrin_test::kDefaultAccount;
using ambrin_test::kDigCommand;
using ambrin_test::kDownload;
using ambrin_test::kFinalization;
using ambrin_test::kFinalizationLog;
using ambrin_test::kFinalizeUrl;
using ambrin_test::kFirstRecord;
using ambrin_test::kHardReplace;
using ambrin_test::kInstallation;
using ambrin_test::kOrder;
using ambrin_test::kOrderLog;
using ambrin_test::kPublicationLog;
using ambrin_test::kRefusal;
using ambrin_test::kRefusalText;
using ambrin_test::kSecondRecord;
using ambrin_test::kThumbprint;
using ambrin_test::kTwoContents;
using ambrin_test::Lines;
using ambrin_test::Outcome;
using testing::ElementsAre;
using testing::IsEmpty;

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
