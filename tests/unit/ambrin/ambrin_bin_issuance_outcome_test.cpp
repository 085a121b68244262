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

// Behaviours of: Outcomes, each with everything asked and everything changed

// Behaviour: No key header, or stored challenges too deep to read: status 1, "Failed to prepare challenges
//   list"
TEST_F(Outcome, OfAListThatCannotBeMade) {
    MakeSecondRun();
    job["modulus"] = "";
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), kBegin);
    EXPECT_THAT(Failures(), ElementsAre("4 Failed to prepare challenges list"));
    EXPECT_THAT(JobLog(), IsEmpty());
    EXPECT_EQ(Changes(), (Changed{{"attempt_count", "2"}}));
}

// Behaviour: Records published: status 0, order and challenges stored
// Behaviour: Publication is framed by the entries challenge_start ...
// Behaviour: A dns run that has just published ends with ...
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

// Behaviour: Records not visible: status 0, next attempt set, nothing else changed
// Behaviour: Every run past the time-out check counts ...
// Behaviour: A record that is not visible pauses the job: ...
// Behaviour: The name servers are looked up once, for ...
// Behaviour: A paused job keeps challenges and order ...
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

// Behaviour: Challenge failed: status 1, "Failed to process challenges", everything published removed,
//   attempts and challenges reset
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

// Behaviour: Stored challenges are never published again ...
// Behaviour: Challenge failed: status 1, "Failed to process ...
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

// Behaviours of: Course of a run

// Behaviour: Once its challenges were answered a job has no attempts and no challenges, whatever comes after
// Behaviour: Finalization refused: status 1, "Failed to ...
TEST_F(CertificateOutcome, OfARefusedFinalization) {
    Object(kFinalizeUrl, 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), Join({answered, kFinalization}));
    EXPECT_THAT(Failures(), ElementsAre("4 Failed to get cert url"));
    EXPECT_EQ(JobLog(), Join({answer_log, {"failed,cert_order_fail," + kRefusalText}}));
    EXPECT_EQ(Changes(), AndTheOrder(AndTheDefaultAccount({})));
}

// Behaviour: The certificate is fetched by POST-as-GET under the error name "cert_recive_failed"
// Behaviour: Once its challenges were answered a job has ...
// Behaviour: Download refused, or an error object: status ...
TEST_F(CertificateOutcome, OfARefusedDownload) {
    Object(kCertificateUrl, 403, kRefusal);
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Story(), Join({answered, kFinalization, kDownload}));
    EXPECT_THAT(Failures(), ElementsAre("4 Failed to get cert"));
    EXPECT_EQ(JobLog(), Join({answer_log, kFinalizationLog, {"failed,cert_recive_failed," + kRefusalText}}));
    EXPECT_EQ(Changes(), AndTheOrder(AndTheDefaultAccount({})));
}

// Behaviour: A received certificate is traced and logged as success / cert_recived before it is installed
// Behaviour: Installation failed: status 1, "failed" on, success / cert_recived and failed /
//   hardreplace_error logged
// Behaviour: A failed installation stops the job with ...
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

// Behaviour: The answer to the installation is not looked at
// Behaviour: Success is told to administrator, owner and further addressee as "ambrin_success"
// Behaviour: Challenges are answered, then the order is ...
// Behaviour: Installation is one query "sslcert.hardreplace" ...
// Behaviour: An installed job is verified, not failed ...
// Behaviour: Certificate installed, in the first run or ...
// Behaviour: A problem's query carries name, id, level ...
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

// Behaviours of: Log of a run

// Behaviour: Every line goes through the one module "sslcert" of "zelvek", every query through the one client
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

// Behaviours of: Outcomes, each with everything asked and everything changed

// Behaviour: Stored challenges are never published again
// Behaviour: Certificate installed, in the first run or a later one: status 0, verified
// Behaviour: A later attempt with stored challenges skips ...
// Behaviour: Once its challenges were answered a job has ...
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
