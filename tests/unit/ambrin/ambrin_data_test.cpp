#include "ambrin_data.h"

#include "support/job_test.h"
#include "vek/err.h"

namespace {

using ambrin_test::JobTest;
using ambrin_test::PanelValues;
using ambrin_test::ParseForm;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class JobRecord : public JobTest {};

const std::map<std::string, std::string> kStoredJob{
    {"elid", "99"},
    {"certname", "cert.example"},
    {"kid", "KID"},
    {"aliases", "a.example b.example"},
    {"finalize_check", "ORDER"},
    {"challenges", "[]"},
    {"check_type", "dns"},
    {"domain", "a.example"},
    {"finalize", "FINALIZE"},
    {"modulus", "{\"alg\":\"RS256\"}\n"},
    {"acmekey", " PEM \r\n"},
    {"attempt_count", "3"},
    {"verified", "on"},
    {"csr_internal_request", "x=1&y=2"},
    {"time_started", "2030-06-01 00:00:00"},
    {"failed", "on"},
    {"force_update", "on"},
    {"next_attempt", "2030-06-02 00:00:00"},
    {"account_check_count", "2"},
    {"user_name", "ann"},
    {"res_name", "reseller"},
    {"skip_account_check", "on"},
    {"default_kid", "DKID"},
    {"default_pem", "DPEM"},
    {"max_account_check_attempts", "5"},
    {"update_default_account", "on"},
    {"log", "an earlier run's entry"},
};

const std::string kReadQuery = "func=ambrin.data.edit&elid=7&out=xml";

// Behaviours of: Job record

// Behaviour: A fresh record has empty texts, zero counters and every flag off, and asks the panel nothing
TEST_F(JobRecord, FreshRecordIsEmpty) {
    EXPECT_EQ(ambrin_data.elid, 0);
    EXPECT_EQ(ambrin_data.attempt_count, 0);
    EXPECT_EQ(ambrin_data.account_check_count, 0);
    EXPECT_EQ(ambrin_data.max_account_check_attempts, 0);
    EXPECT_FALSE(ambrin_data.verified || ambrin_data.failed || ambrin_data.force_update);
    EXPECT_FALSE(ambrin_data.skip_account_check || ambrin_data.update_default_account);
    EXPECT_THAT(ambrin_data.certname + ambrin_data.kid + ambrin_data.acmekey + ambrin_data.log, IsEmpty());
    EXPECT_THAT(world.calls(), IsEmpty());
}

// Behaviour: The record's panel client speaks to the service "zelvek" as the module "ambrin"
// Behaviour: The job is read by one query "func=ambrin.data.edit&elid=?&out=xml" with the id in decimal
// Behaviour: The id is the argument's, whatever the answer says
// Behaviour: Every text is taken as it is, white space, line ends and all
TEST_F(JobRecord, InitReadsEveryTextAsItStands) {
    world.AnswerPanel(kReadQuery, PanelValues(kStoredJob));
    ambrin_data.Init(7);
    EXPECT_EQ(ambrin_data.elid, 7) << "the id is the argument's, whatever the answer says";
    EXPECT_EQ(ambrin_data.certname, "cert.example");
    EXPECT_EQ(ambrin_data.kid, "KID");
    EXPECT_EQ(ambrin_data.aliases, "a.example b.example");
    EXPECT_EQ(ambrin_data.finalize_check, "ORDER");
    EXPECT_EQ(ambrin_data.challenges, "[]");
    EXPECT_EQ(ambrin_data.check_type, "dns");
    EXPECT_EQ(ambrin_data.domain, "a.example");
    EXPECT_EQ(ambrin_data.finalize, "FINALIZE");
    EXPECT_EQ(ambrin_data.modulus, "{\"alg\":\"RS256\"}\n");
    EXPECT_EQ(ambrin_data.acmekey, " PEM \r\n");
    EXPECT_EQ(ambrin_data.csr_internal_request, "x=1&y=2");
    EXPECT_EQ(ambrin_data.time_started, "2030-06-01 00:00:00");
    EXPECT_EQ(ambrin_data.next_attempt, "2030-06-02 00:00:00");
    EXPECT_EQ(ambrin_data.user_name, "ann");
    EXPECT_EQ(ambrin_data.res_name, "reseller");
    EXPECT_EQ(ambrin_data.default_kid, "DKID");
    EXPECT_EQ(ambrin_data.default_pem, "DPEM");
    EXPECT_THAT(world.Lines(), ElementsAre("panel: " + kReadQuery));
    EXPECT_EQ(world.calls().front().detail, "zelvek/ambrin");
}

// Behaviour: The counters and the limit of account checks are read as integers
TEST_F(JobRecord, InitReadsNumbersAndFlags) {
    world.AnswerPanel(kReadQuery, PanelValues(kStoredJob));
    ambrin_data.Init(7);
    EXPECT_EQ(ambrin_data.attempt_count, 3);
    EXPECT_EQ(ambrin_data.account_check_count, 2);
    EXPECT_EQ(ambrin_data.max_account_check_attempts, 5);
    EXPECT_TRUE(ambrin_data.verified);
    EXPECT_TRUE(ambrin_data.failed);
    EXPECT_TRUE(ambrin_data.force_update);
    EXPECT_TRUE(ambrin_data.skip_account_check);
}

// Behaviour: The read leaves the run's own members alone: this run's log and the wish for a new default
//   account
TEST_F(JobRecord, InitLeavesTheRunsOwnMembersAlone) {
    world.AnswerPanel(kReadQuery, PanelValues(kStoredJob));
    ambrin_data.Init(7);
    EXPECT_FALSE(ambrin_data.update_default_account);
    EXPECT_EQ(ambrin_data.log, "");
}

// Behaviour: A flag is on for exactly the text "on"; other letter cases, other words and an empty text are
//   off
TEST_F(JobRecord, OnlyTheExactWordOnIsTrue) {
    for (const std::string word : {"", "off", "On", "ON", " on", "on ", "yes", "1", "true"}) {
        world.AnswerPanel(kReadQuery,
                          PanelValues({{"verified", word}, {"failed", word}, {"force_update", word}}));
        ambrin_data.verified = ambrin_data.failed = ambrin_data.force_update = true;
        ambrin_data.Init(7);
        EXPECT_FALSE(ambrin_data.verified || ambrin_data.failed || ambrin_data.force_update) << word;
    }
}

// Behaviour: A value that the answer does not hold reads as empty, zero or off
TEST_F(JobRecord, MissingValuesReadAsEmptyZeroAndOff) {
    ambrin_data.certname = "old";
    ambrin_data.attempt_count = 9;
    world.AnswerPanel(kReadQuery, "<doc/>");
    ambrin_data.Init(7);
    EXPECT_EQ(ambrin_data.certname, "");
    EXPECT_EQ(ambrin_data.attempt_count, 0);
    EXPECT_FALSE(ambrin_data.verified);
}

// Behaviour: A counter that is no number reads as zero
TEST_F(JobRecord, NumbersThatAreNoneReadAsZero) {
    world.AnswerPanel(kReadQuery, PanelValues({{"attempt_count", "many"}, {"account_check_count", " 4th"}}));
    ambrin_data.Init(7);
    EXPECT_EQ(ambrin_data.attempt_count, 0);
    EXPECT_EQ(ambrin_data.account_check_count, 4);
}

// Behaviour: A panel error of the read travels to the caller, with only the id set
TEST_F(JobRecord, PanelErrorOfTheReadTravelsToTheCaller) {
    world.FailPanel(kReadQuery, "missed", "no such job");
    EXPECT_THROW(ambrin_data.Init(7), vek_err::Error);
    EXPECT_EQ(ambrin_data.elid, 7);
    EXPECT_EQ(ambrin_data.certname, "");
}

// Behaviour: What the panel owns (names, owner, check type, CSR parameters, start time, default account,
//   limit) is never sent back
// Behaviour: The write-back always sends "processing" as "off"
// Behaviour: The write-back is one query "func=ambrin.data.edit&sok=ok" ...
TEST_F(JobRecord, WriteBackSendsExactlyTheRunsKeys) {
    world.AnswerPanel(kReadQuery, PanelValues(kStoredJob));
    ambrin_data.Init(7);
    ambrin_data.update_default_account = true;
    ambrin_data.WriteLog("processing", "order_success", "");
    EXPECT_THAT(
        EndOfProcess(),
        ElementsAre(Pair("account_check_count", "2"), Pair("acmekey", " PEM \r\n"),
                    Pair("attempt_count", "3"), Pair("challenges", "[]"), Pair("elid", "7"),
                    Pair("failed", "on"), Pair("finalize", "FINALIZE"), Pair("finalize_check", "ORDER"),
                    Pair("force_update", "on"), Pair("func", "ambrin.data.edit"), Pair("kid", "KID"),
                    Pair("log", "2030-06-01 12:00:00,processing,order_success,"),
                    Pair("modulus", "{\"alg\":\"RS256\"}\n"), Pair("next_attempt", "2030-06-02 00:00:00"),
                    Pair("processing", "off"), Pair("sok", "ok"), Pair("update_default_account", "on"),
                    Pair("verified", "on")));
}

// Behaviour: A record that was never read is written back as job 0, with empty texts, zero counters and flags
//   off
// Behaviour: A fresh record has empty texts, zero counters ...
// Behaviour: Flags are written as "on" and "off", numbers ...
TEST_F(JobRecord, RecordThatWasNeverReadIsWrittenBackAsJobZero) {
    EXPECT_THAT(
        EndOfProcess(),
        ElementsAre(Pair("account_check_count", "0"), Pair("acmekey", ""), Pair("attempt_count", "0"),
                    Pair("challenges", ""), Pair("elid", "0"), Pair("failed", "off"), Pair("finalize", ""),
                    Pair("finalize_check", ""), Pair("force_update", "off"), Pair("func", "ambrin.data.edit"),
                    Pair("kid", ""), Pair("log", ""), Pair("modulus", ""), Pair("next_attempt", ""),
                    Pair("processing", "off"), Pair("sok", "ok"), Pair("update_default_account", "off"),
                    Pair("verified", "off")));
}

// Behaviour: A write-back called by hand passes the panel's error on
TEST_F(JobRecord, PostCanBeCalledAheadOfTheEndAndThrowsThePanelsError) {
    world.FailPanel("func=ambrin.data.edit&sok=ok&*", "stale", "somebody else has read the record");
    EXPECT_THROW(ambrin_data.Post(), vek_err::Error);
}

using JobRecordDeathTest = JobRecord;

// Behaviour: A write-back that fails ends the process abnormally
TEST_F(JobRecordDeathTest, WriteBackThatFailsEndsTheProcessAbnormally) {
    world.AllowUnaskedAnswers();
    world.FailPanel("*", "stale", "somebody else has read the record");
    EXPECT_EXIT(ambrin_test::RenewRecord(), testing::KilledBySignal(SIGABRT), "");
}

// Behaviour: A log entry is date and time, state, event and detail, with commas between them
TEST_F(JobRecord, LogEntryIsDateStateEventAndDetail) {
    ambrin_data.WriteLog("processing", "challenge_start", "");
    EXPECT_EQ(ambrin_data.log, "2030-06-01 12:00:00,processing,challenge_start,");
}

// Behaviour: An entry bears the moment at which it was written
// Behaviour: Entries stand in call order with ";" between them and none ahead of the first
// Behaviour: A detail may be empty or hold commas and semicolons
TEST_F(JobRecord, LogEntriesStandInCallOrderWithSemicolonsBetweenThem) {
    ambrin_data.WriteLog("processing", "challenge_start", "");
    world.SetNow("2030-06-01 12:00:05");
    ambrin_data.WriteLog("failed", "hardreplace_error", "key, and certificate; differ");
    ambrin_data.WriteLog("", "", "");
    EXPECT_EQ(ambrin_data.log,
              "2030-06-01 12:00:00,processing,challenge_start,;"
              "2030-06-01 12:00:05,failed,hardreplace_error,key, and certificate; differ;"
              "2030-06-01 12:00:05,,,");
}

// Behaviour: No value of the write-back can become a parameter
TEST_F(JobRecord, ValuesOfTheWriteBackCannotBecomeParameters) {
    ambrin_data.kid = "K&verified=on?#%41\n";
    const auto posted = EndOfProcess();
    EXPECT_EQ(posted.at("kid"), "K&verified=on?#%41\n");
    EXPECT_EQ(posted.at("verified"), "off");
}

}  // namespace
