#include <iostream>

#include "ambrin_data.h"
#include "support/job_test.h"
#include "vek/err.h"

// The record's queries byte by byte, and what is made of their answers.
namespace {

using ambrin_test::JobTest;
using ambrin_test::PanelValues;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class JobQuery : public JobTest {
protected:
    const std::string kRead = "func=ambrin.data.edit&elid=7&out=xml";
    const std::string kWrite = "func=ambrin.data.edit&sok=ok";
};

// Behaviours of: Job record

// Behaviour: The write-back is one query "func=ambrin.data.edit&sok=ok" with sixteen keys, in key order,
//   percent-encoded
// Behaviour: Flags are written as "on" and "off", numbers in decimal
TEST_F(JobQuery, WriteBackIsItsFixedTextAndTheKeysInTheirOrder) {
    ambrin_data.elid = -7;
    ambrin_data.attempt_count = 3;
    ambrin_data.account_check_count = -1;
    ambrin_data.kid = "https://ca.test/account/1";
    ambrin_data.acmekey = "-----BEGIN KEY-----\n+/=\n";
    ambrin_data.modulus = "{\"alg\":\"RS256\"}\n";
    ambrin_data.challenges = "[]\n";
    ambrin_data.finalize = "F?a=b&c";
    ambrin_data.finalize_check = "O";
    ambrin_data.next_attempt = "2030-06-01 12:30:00";
    ambrin_data.verified = true;
    ambrin_data.update_default_account = true;
    ambrin_data.WriteLog("failed", "timeout_error", "");
    world.AnswerPanel(kWrite + "&*", "<doc/>");
    ambrin_data.Post();
    EXPECT_THAT(
        world.Lines(),
        ElementsAre("panel: " + kWrite +
                    "&account_check_count=-1&acmekey=-----BEGIN%20KEY-----%0A%2B%2F%3D%0A&attempt_count=3"
                    "&challenges=%5B%5D%0A&elid=-7&failed=off&finalize=F%3Fa%3Db%26c&finalize_check=O"
                    "&force_update=off&kid=https%3A%2F%2Fca.test%2Faccount%2F1"
                    "&log=2030-06-01%2012%3A00%3A00%2Cfailed%2Ctimeout_error%2C"
                    "&modulus=%7B%22alg%22%3A%22RS256%22%7D%0A&next_attempt=2030-06-01%2012%3A30%3A00"
                    "&processing=off&update_default_account=on&verified=on"));
}

// Behaviour: The answer to the write-back is not looked at
TEST_F(JobQuery, AnswerToTheWriteBackIsNotLookedAt) {
    world.AnswerPanel(kWrite + "&*", PanelValues({{"kid", "another"}, {"failed", "on"}, {"ok", "no"}}));
    EXPECT_NO_THROW(ambrin_data.Post());
    EXPECT_EQ(ambrin_data.kid, "");
    EXPECT_FALSE(ambrin_data.failed);
}

// Behaviour: A flag is on for exactly the text "on"; other ...
TEST_F(JobQuery, EveryFlagIsTrueForExactlyOn) {
    const std::vector<bool AmbrinData::*> flags{&AmbrinData::verified, &AmbrinData::failed,
                                                &AmbrinData::force_update, &AmbrinData::skip_account_check};
    for (const std::string word : {"on", "On", "ON", "off", "", "1", "on\n"}) {
        world.AnswerPanel(kRead, PanelValues({{"verified", word},
                                              {"failed", word},
                                              {"force_update", word},
                                              {"skip_account_check", word}}));
        ambrin_data.Init(7);
        for (bool AmbrinData::*flag : flags) EXPECT_EQ(ambrin_data.*flag, word == "on") << word;
    }
}

// Behaviour: The counters and the limit of account checks ...
TEST_F(JobQuery, EveryNumberIsReadToTheEndOfItsDigits) {
    world.AnswerPanel(kRead, PanelValues({{"attempt_count", "12 runs"},
                                          {"account_check_count", "-3"},
                                          {"max_account_check_attempts", "99999999999"}}));
    ambrin_data.Init(7);
    EXPECT_EQ(ambrin_data.attempt_count, 12);
    EXPECT_EQ(ambrin_data.account_check_count, -3);
    EXPECT_EQ(ambrin_data.max_account_check_attempts, 2147483647);
}

// Behaviour: A panel error of the read travels to the ...
TEST_F(JobQuery, FailedReadLeavesEverythingButTheIdAlone) {
    ambrin_data.certname = "kept";
    ambrin_data.attempt_count = 5;
    ambrin_data.verified = true;
    world.FailPanel(kRead, "missed", "no such job");
    EXPECT_THROW(ambrin_data.Init(7), vek_err::Error);
    EXPECT_EQ(ambrin_data.elid, 7);
    EXPECT_EQ(ambrin_data.certname, "kept");
    EXPECT_EQ(ambrin_data.attempt_count, 5);
    EXPECT_TRUE(ambrin_data.verified);
}

using JobQueryDeathTest = JobQuery;

// Behaviour: A write-back that fails is not tried again
TEST_F(JobQueryDeathTest, WriteBackThatFailsIsNotTriedAgain) {
    world.AlwaysPanel("*", [](const std::string&) -> std::string {
        std::cerr << "asked." << std::flush;
        throw vek_err::Error::Reported("stale", "somebody else has read the record");
    });
    EXPECT_EXIT(ambrin_test::RenewRecord(), testing::KilledBySignal(SIGABRT),
                AllOf(HasSubstr("asked."), Not(HasSubstr("asked.asked."))));
}

}  // namespace
