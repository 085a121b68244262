#include "support/outcome.h"

// Whole runs against an authority that keeps to RFC 8555: it finalizes in its own time, and refuses nonces.
namespace {

using ambrin_test::Join;
using ambrin_test::JsonAnswer;
using ambrin_test::kAuthorizations;
using ambrin_test::kBegin;
using ambrin_test::kCertificateUrl;
using ambrin_test::kDefaultKid;
using ambrin_test::kDownload;
using ambrin_test::kFinalization;
using ambrin_test::kFinalizeUrl;
using ambrin_test::kFirstRecord;
using ambrin_test::kInstallation;
using ambrin_test::kKeyDumpCommand;
using ambrin_test::kOrder;
using ambrin_test::kOrderUrl;
using ambrin_test::kSecondRecord;
using ambrin_test::kThumbprint;
using ambrin_test::kTwoContents;
using ambrin_test::Lines;
using ambrin_test::Outcome;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

const Lines kAccount{"child " + kKeyDumpCommand, "nonce", "POST " + kDefaultKid + " -"};
const Lines kPolls{"sleep 1000", "nonce", "POST " + kOrderUrl + " -",
                   "sleep 4000", "nonce", "POST " + kOrderUrl + " -"};

class RunByTheLetter : public Outcome {
protected:
    /// The certificate is there at the second poll.
    RunByTheLetter() {
        Object(kFinalizeUrl, 200, R"({"status":"processing"})");
        world.AlwaysHttp("POST " + kOrderUrl, [this](const std::string&) {
            if (++polls_ == 1)
                return JsonAnswer(200, R"({"status":"processing"})",
                                  "Retry-After: Sat, 01 Jun 2030 12:00:05 GMT\r\n");
            return JsonAnswer(200, R"({"status":"valid","certificate":")" + kCertificateUrl + "\"}");
        });
    }

private:
    int polls_ = 0;
};

// Behaviours of: The style rfc8555

// Behaviour: In the style rfc8555 a whole http run checks its account and polls its order by POST-as-GET, and
// differs
//   in nothing else from one in the style classic
TEST_F(RunByTheLetter, IssuesOverHttp) {
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(Story(), Join({kBegin, kAccount, kOrder, kAuthorizations, kThumbprint, Files("create"),
                             Answers("http", "{}"), Files("delete"), kFinalization, kPolls, kDownload,
                             kInstallation, ToldOfSuccess()}));
    EXPECT_TRUE(ambrin_data.verified);
}

// Behaviour: In the style rfc8555 the later run of a dns job answers its challenges with {}, too
TEST_F(RunByTheLetter, IssuesOverDnsInALaterRun) {
    MakeSecondRun();
    job["check_type"] = "dns";
    visible_records = {kFirstRecord, kSecondRecord};
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(Story(),
              Join({kBegin, kThumbprint, kTwoContents, RecordsLookedUp(), Answers("dns", "{}"),
                    RecordsRemoved(), kFinalization, kPolls, kDownload, kInstallation, ToldOfSuccess()}));
    EXPECT_TRUE(ambrin_data.verified);
}

// Behaviour: In the style rfc8555 a run comes to its end though the first two nonces of every request are
// refused, and
//   its log tells of no failure
TEST_F(RunByTheLetter, EndsThoughNoncesAreRefused) {
    Object(kFinalizeUrl, 200, R"({"status":"valid","certificate":")" + kCertificateUrl + "\"}");
    refused_nonces = 2;
    EXPECT_EQ(Run(), 0);
    EXPECT_TRUE(ambrin_data.verified);
    EXPECT_THAT(Requests(), SizeIs(3 * 8));
    EXPECT_THAT(JobLog(), Not(Contains(HasSubstr("failed"))));
}

// Behaviour: In the style rfc8555 a run whose every nonce is refused ends at the first request that cannot do
// without
TEST_F(RunByTheLetter, EndsWhereEveryNonceIsRefused) {
    job["default_pem"] = "";
    refused_nonces = 100;
    EXPECT_EQ(Run(), 1);
    EXPECT_THAT(Requests(), SizeIs(3));
    EXPECT_THAT(Failures(), ElementsAre("4 Registration failed"));
}

}  // namespace
