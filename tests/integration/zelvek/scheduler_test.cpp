// Due jobs are started by themselves, one process each, and end in order with the service.
#include <SQLiteCpp/Database.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <set>
#include <sstream>

#include "service.h"
#include "vek/date.h"

namespace zelvek::testing {

namespace {

class SchedulerTest : public ServiceTest {
protected:
    /// A test that changes the database itself tells nobody: it wants a short interval between looks.
    void StartScheduler(const std::string& retry = "3600", const std::string& interval = "3600") {
        Start({{"--scheduler", "on"},
               {"--scheduler-interval", interval},
               {"--retry-interval", retry},
               {"--plugin-log-level", "9"},  // the test's plug-in writes nothing but a trace
               {"--runs-at-once", "4"}});
        GivePanelAnAccount();
    }

    /// Without one, the first job's run would hold the others back.
    void GivePanelAnAccount() const {
        SQLite::Database(Database().string(), SQLite::OPEN_READWRITE, 10'000)
            .exec(
                "INSERT INTO account (id, kid, acmekey, modulus) VALUES (77, 'https://ca.example/1', 'k', "
                "'m');"
                "INSERT INTO setting (name, value) VALUES ('default_account', '77')");
    }

    /// A job whose runs go that way.
    std::string Add(const std::string& way) {
        return AddJob({{"certname", way + "-" + std::to_string(++certificates_)}});
    }

    static std::string Value(const std::string& id, const std::string& key) {
        return Ask("func=zelvek.job.show&elid=" + id).value(key);
    }

    /// The processes that have run for the job.
    std::vector<pid_t> Runs(const std::string& id) const {
        std::istringstream lines(ReadFile(Path("log") / "runs"));
        std::vector<pid_t> runs;
        std::string job;
        for (pid_t pid = 0; lines >> job >> pid;) {
            if (job == id) runs.push_back(pid);
        }
        return runs;
    }

    bool Over(const std::string& id) const { return !Runs(id).empty() && Value(id, "processing") == "off"; }

    static int Count(const std::string& text, const std::string& part) {
        int count = 0;
        for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
        return count;
    }

private:
    int certificates_ = 0;
};

// Behaviours of: Scheduling

// Behaviour: A new job is started at once, a verified one when its certificate is to be renewed, a failed one
// never
//   again
TEST_F(SchedulerTest, StartsANewJobAtOnceAndAVerifiedOneNotAgain) {
    StartScheduler("1");
    const std::string id = Add("installs");
    const std::string marker = Add("retries");
    EXPECT_TRUE(Eventually([&] { return Value(id, "verified") == "on"; }));
    EXPECT_TRUE(Eventually([&] { return Runs(marker).size() >= 3; }));
    EXPECT_EQ(Runs(id).size(), 1U);
}

// Behaviour: A new job is started at once, a verified ...
TEST_F(SchedulerTest, StartsAVerifiedOneAnewWhenItsRenewalIsDue) {
    StartScheduler("3600", "0.05");
    const std::string id = Add("installs");
    EXPECT_TRUE(Eventually([&] { return Value(id, "verified") == "on"; }));
    const std::string before = Value(id, "time_started");
    SQLite::Database database(Database().string(), SQLite::OPEN_READWRITE, 10'000);
    database.exec(
        "UPDATE job SET expires = '2026-03-01 00:00:00', renew = '2026-02-01 00:00:00',"
        " time_started = '2025-12-01 00:00:00'");
    EXPECT_TRUE(Eventually([&] { return Runs(id).size() == 2; }));
    EXPECT_TRUE(Eventually([&] { return Value(id, "verified") == "on"; }));
    EXPECT_GE(Value(id, "time_started"), before);
}

// Behaviour: Certificates are renewed when somebody asks for it: one, a user's, those that end soon, or all
TEST_F(SchedulerTest, RenewsWhatSomebodyAsksFor) {
    Start();
    const std::string first = Add("a");
    const std::string second = Add("b");
    const std::string third = AddJob({{"certname", "c"}, {"user_name", "bob"}});
    {
        SQLite::Database database(Database().string(), SQLite::OPEN_READWRITE, 10'000);
        database.exec("UPDATE job SET verified = 1, renew = '2999-01-01 00:00:00', expires = CASE id WHEN " +
                      first + " THEN datetime('now', '+5 days') ELSE '2999-01-01 00:00:00' END");
    }
    const auto renewed = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {"job", "renew"});
        const Ended ended = Zelvek(words);
        EXPECT_EQ(ended.status, 0) << ended.err;
        std::string states;
        for (const std::string& id : {first, second, third})
            states += Value(id, "verified") == "on" ? "-" : "R";
        SQLite::Database(Database().string(), SQLite::OPEN_READWRITE, 10'000)
            .exec("UPDATE job SET verified = 1");
        return states;
    };
    EXPECT_EQ(renewed({second}), "-R-");
    EXPECT_EQ(renewed({"--expiring", "6"}), "R--");
    EXPECT_EQ(renewed({"--expiring", "4"}), "---");
    EXPECT_EQ(renewed({"--user", "anna"}), "RR-");
    EXPECT_EQ(renewed({"--all"}), "RRR");
    EXPECT_EQ(Zelvek({"job", "renew"}).status, 1);
    EXPECT_EQ(Zelvek({"job", "renew", "1", "--all"}).status, 1);
    EXPECT_EQ(Zelvek({"job", "renew", "99"}).status, 1);
}

// Behaviour: A new job is started at once, a verified ...
TEST_F(SchedulerTest, AFailedJobIsNotStartedAgain) {
    StartScheduler("1");
    const std::string id = Add("stops");
    const std::string marker = Add("fails");
    EXPECT_TRUE(Eventually([&] { return Runs(marker).size() >= 3; })) << "a run that failed is repeated";
    EXPECT_EQ(Runs(id).size(), 1U);
}

// Behaviour: A new job is started at once, a verified ...
TEST_F(SchedulerTest, AStoppedJobBeginsAnewWhenItsTimeHasCome) {
    StartScheduler("3600", "0.05");
    const std::string id = Add("stops");
    EXPECT_TRUE(Eventually([&] { return Value(id, "failed") == "on"; }));
    EXPECT_EQ(Value(id, "failures"), "1");
    SQLite::Database database(Database().string(), SQLite::OPEN_READWRITE, 10'000);
    database.exec("UPDATE job SET due = '2026-01-01 00:00:00', time_started = '2026-01-01 00:00:00'");
    EXPECT_TRUE(Eventually([&] { return Runs(id).size() == 2 && Value(id, "failures") == "2"; }));
    EXPECT_GT(Value(id, "time_started"), "2026-01-01 00:00:00");
}

// Behaviour: A job without a certificate is tried again at once when somebody asks for it
TEST_F(SchedulerTest, TriesAgainWhatSomebodyAsksFor) {
    StartScheduler();
    const std::string id = Add("retries");
    EXPECT_TRUE(Eventually([&] { return Over(id); }));
    EXPECT_EQ(Zelvek({"job", "retry", id}).out, "1 job tried again\n");
    EXPECT_TRUE(Eventually([&] { return Runs(id).size() == 2 && Over(id); }));
    EXPECT_EQ(Zelvek({"job", "retry", "--user", "nobody"}).out, "0 jobs tried again\n");
    EXPECT_EQ(Zelvek({"job", "retry", "--all"}).out, "1 job tried again\n");
    EXPECT_TRUE(Eventually([&] { return Runs(id).size() == 3; }));
    EXPECT_EQ(Zelvek({"job", "retry"}).status, 1);
}

// Behaviour: A job is started at the time that it asks for, otherwise after the retry interval
TEST_F(SchedulerTest, WaitsUntilTheTimeThatTheJobAsksFor) {
    StartScheduler("1");
    const std::string id = Add("waits");
    const std::string marker = Add("retries");
    EXPECT_TRUE(Eventually([&] { return Runs(marker).size() >= 3; }));
    EXPECT_EQ(Runs(id).size(), 1U);
    EXPECT_EQ(Value(id, "next_attempt"), "2999-01-01 00:00:00");
}

// Behaviour: A job is started at the time that it asks ...
TEST_F(SchedulerTest, WaitsForTheRetryIntervalOtherwise) {
    StartScheduler("3600");
    const std::string id = Add("retries");
    EXPECT_TRUE(Eventually([&] { return Over(id); }));
    const std::string later = Add("retries");
    EXPECT_TRUE(Eventually([&] { return Over(later); }));
    EXPECT_EQ(Runs(id).size(), 1U);
}

// Behaviour: A run that dies frees its job
TEST_F(SchedulerTest, AKilledRunFreesItsJob) {
    StartScheduler("1");
    const std::string id = Add("dies");
    EXPECT_TRUE(Eventually([&] { return Runs(id).size() >= 2; }));
}

// Behaviour: A run that dies frees its job ...
TEST_F(SchedulerTest, ARunThatDiesBeforeReadingFreesItsJob) {
    ::setenv("PLUGIN_DIES_AT_ONCE", "1", 1);
    StartScheduler("1");
    ::unsetenv("PLUGIN_DIES_AT_ONCE");
    const std::string id = Add("installs");
    EXPECT_TRUE(Eventually([&] { return Runs(id).size() >= 2; }));
}

// Behaviour: At most as many runs go on at once as was set, and one for each job
TEST_F(SchedulerTest, RunsNoMoreThanSetAtOnceAndOneForEachJob) {
    StartScheduler();
    std::vector<std::string> ids;
    for (int i = 0; i < 6; ++i) ids.push_back(Add("hangs"));
    const auto running = [&] {
        return std::count_if(ids.begin(), ids.end(),
                             [&](const std::string& id) { return !Runs(id).empty(); });
    };
    EXPECT_TRUE(Eventually([&] { return running() == 4; }));
    EXPECT_EQ(ErrorOf("func=zelvek.job.claim&elid=" + ids[0]), "busy");
    ::kill(Runs(ids[0]).front(), SIGTERM);
    EXPECT_TRUE(Eventually([&] { return running() == 5; }));
    for (const auto& id : ids) EXPECT_LE(Runs(id).size(), 1U);
}

// Behaviour: A free place is taken at once, not at the next look at the jobs
TEST_F(SchedulerTest, AFreePlaceIsTakenAtOnce) {
    Start();
    GivePanelAnAccount();
    std::vector<std::string> ids;
    for (int i = 0; i < 20; ++i) ids.push_back(Add("fails"));
    Stop();
    Start({{"--scheduler", "on"}, {"--runs-at-once", "4"}, {"--retry-interval", "3600"}});
    for (const auto& id : ids) EXPECT_TRUE(Eventually([&] { return Runs(id).size() == 1; })) << id;
}

// Behaviour: A user with many due jobs does not delay another's only one
TEST_F(SchedulerTest, AUserWithManyDueJobsDoesNotDelayAnothersOnlyOne) {
    Start();
    GivePanelAnAccount();
    std::vector<std::string> ids;
    for (int i = 0; i < 40; ++i) ids.push_back(Add("fails"));
    const std::string only = AddJob({{"certname", "fails"}, {"user_name", "bert"}});
    Stop();
    Start({{"--scheduler", "on"}, {"--runs-at-once", "4"}, {"--retry-interval", "3600"}});
    for (const auto& id : ids) EXPECT_TRUE(Eventually([&] { return Runs(id).size() == 1; })) << id;
    std::istringstream lines(ReadFile(Path("log") / "runs"));
    std::vector<std::string> order;
    for (std::string id, pid; lines >> id >> pid;) order.push_back(id);
    // Started as one of the first four; these four may write their line in any order.
    EXPECT_LT(std::find(order.begin(), order.end(), only) - order.begin(), 8);
}

// Behaviour: While the first run on an empty panel may register the account, no other job without one is run,
// by
//   nobody
TEST_F(SchedulerTest, TheFirstRegistrationHoldsTheOthersBack) {
    Start({{"--scheduler", "on"}, {"--retry-interval", "3600"}});
    const std::string first = Add("hangs");
    EXPECT_TRUE(Eventually([&] { return Runs(first).size() == 1; }));
    const std::string second = Add("installs");
    EXPECT_EQ(ErrorOf("func=zelvek.job.claim&elid=" + second), "busy");
    ::kill(Runs(first).front(), SIGTERM);
    EXPECT_TRUE(Eventually([&] { return Value(second, "verified") == "on"; }));
    EXPECT_TRUE(Over(first));
}

// Behaviour: A run that takes longer than its limit is asked to end, and writes its record back
TEST_F(SchedulerTest, ARunThatTakesTooLongIsEnded) {
    Start({{"--scheduler", "on"}, {"--retry-interval", "3600"}, {"--run-limit", "1"}});
    const std::string id = Add("hangs");
    EXPECT_TRUE(Eventually([&] { return Over(id); }));
    EXPECT_EQ(Value(id, "kid"), "interrupted");
}

// Behaviour: A stop ends the runs, which still write their records back
TEST_F(SchedulerTest, AStopEndsTheRunsWhichStillWriteTheirRecordsBack) {
    StartScheduler();
    const std::string id = Add("hangs");
    EXPECT_TRUE(Eventually([&] { return Value(id, "processing") == "on" && !Runs(id).empty(); }));
    const pid_t run = Runs(id).front();
    EXPECT_TRUE(Eventually([&] { return !ReadFile(Path("log") / "ambrin.log").empty(); }));
    Stop();
    EXPECT_NE(::kill(run, 0), 0) << "it outlives the service";
    Start();
    EXPECT_EQ(Value(id, "kid"), "interrupted");
    EXPECT_EQ(Value(id, "processing"), "off");
}

/// What a clock that was set back, or damage, leaves in a row.
const std::vector<std::string> kWrongTimes{
    "last_run = '2999-01-01 00:00:00', due = '2999-01-01 00:01:00'",
    "last_run = '2999-01-01 00:00:00', next_attempt = '2999-01-01 00:00:02', due = '2999-01-01 00:00:02'",
    "time_started = '2999-01-01 00:00:00', due = '2999-01-01 00:00:00'",
    "due = 'never', last_run = 'never', next_attempt = 'never', time_started = 'never'",
    "due = 'never'",
    "last_run = 'never'",
    "processing = 1, time_started = 'never', next_attempt = 'never', due = 'never', last_run = 'never'"};

// Behaviour: A job whose times lie in the future or cannot be read runs all the same, keeps no other one from
//   running, and is logged once
TEST_F(SchedulerTest, AJobWithWrongTimesRunsAndKeepsNoOtherOneWaiting) {
    Start();
    std::vector<std::string> ids;
    for (std::size_t i = 0; i < kWrongTimes.size(); ++i) ids.push_back(Add("fails"));
    const std::string other = Add("installs");
    Stop();
    // The first service would mend the last one, whose run is dead, with its next look for what the dead
    // leave.
    SQLite::Database database(Database().string(), SQLite::OPEN_READWRITE, 10000);
    for (std::size_t i = 0; i < ids.size(); ++i)
        database.exec("UPDATE job SET " + kWrongTimes[i] + " WHERE id = " + ids[i]);
    StartScheduler("1");
    EXPECT_TRUE(Eventually([&] { return Value(other, "verified") == "on"; }));
    for (const auto& id : ids) EXPECT_TRUE(Eventually([&] { return Runs(id).size() >= 2; })) << id;
    for (const auto& id : ids) {
        EXPECT_EQ(Count(service().Err(), "job " + id + ": a time "), 1) << service().Err();
        EXPECT_LE(Value(id, "time_started"), vek_date::DateTime().AsDateTime());
    }
}

// Behaviour: A job whose times lie in the future or cannot ...
TEST_F(SchedulerTest, ARunReadsTimesThatCanBeRead) {
    Start();
    const std::string id = Add("fails");
    SQLite::Database(Database().string(), SQLite::OPEN_READWRITE, 10000)
        .exec("UPDATE job SET time_started = 'never', next_attempt = 'never' WHERE id = " + id);
    const auto record = Ask("func=ambrin.data.edit&out=xml&elid=" + id);
    EXPECT_NO_THROW(vek_date::DateTime(record.value("time_started")));
    EXPECT_EQ(record.value("next_attempt"), "");
    EXPECT_EQ(Value(id, "time_started"), record.value("time_started")) << "it stays, and so ends some day";
}

// Behaviour: Runs get the service's environment
TEST_F(SchedulerTest, RunsGetTheServicesEnvironment) {
    StartScheduler();
    const std::string id = Add("installs");
    EXPECT_TRUE(Eventually([&] { return Value(id, "verified") == "on"; })) << "VEK_RUN_DIR";
    EXPECT_FALSE(Runs(id).empty()) << "VEK_LOG_DIR";
}

}  // namespace

}  // namespace zelvek::testing
