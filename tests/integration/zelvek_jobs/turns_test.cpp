// Which jobs are claimed for runs.
#include "zelvek/jobs/turns.h"

#include <unistd.h>

#include <set>

#include "moved_clock.h"
#include "zelvek/store/accounts.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/restarts.h"
#include "zelvek_store/engine.h"

namespace zelvek::testing {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ClaimedTurns : public StoreTest {
protected:
    int Add(const std::string& user, const std::string& due, const std::string& kid = "") {
        Job job;
        job.user_name = user;
        job.aliases = "name" + std::to_string(++names_) + ".example";
        job.time_started = job.due = due;
        job.kid = kid;
        return AddJob(job);
    }

    /// Jobs of one user, each with an account of its own, since an authority limits what one may order.
    void AddMany(int count, const std::string& due) {
        Do([&](Transaction& transaction) {
            for (int i = 0; i < count; ++i) {
                Job job;
                job.user_name = "anna";
                job.time_started = job.due = due;
                job.kid = "https://ca.example/acct/" + std::to_string(i);
                job.id = jobs::Add(transaction, job);
                jobs::Save(transaction, job);
            }
        });
    }

    int AddWithAccount(const std::string& user, const std::string& due) {
        return Add(user, due, "https://ca.example/acct/1");
    }

    std::vector<int> Claim(std::size_t slots, bool look = true) {
        const auto claimed = turns_.Claim(
            slots, [&](int job) { return under_way_.contains(job); }, look);
        under_way_.insert(claimed.begin(), claimed.end());
        return claimed;
    }

    /// The job's process has ended without a write-back.
    void End(int job) { under_way_.erase(job); }

    void GivePanelAnAccount() {
        Job verified;
        verified.verified = true;
        verified.kid = "https://ca.example/acct/1";
        const int job = AddJob(verified);
        Do([&](Transaction& transaction) { accounts::MakeDefault(transaction, job); });
    }

    MovedClock clock_{kNow};
    Turns turns_{store(), {}, FindProcess(::getpid()).value()};
    std::set<int> under_way_;
    int names_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Engines, ClaimedTurns, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Scheduling

// Behaviour: As long as the panel has no account, one job at a time is run that has none either: the first
//   registration holds the others back; jobs with an account of their own are run meanwhile
TEST_P(ClaimedTurns, TheFirstRegistrationHoldsTheOthersBack) {
    const int first = Add("anna", "2031-05-01 10:00:00");
    const int second = Add("bert", "2031-05-01 11:00:00");
    const int own = AddWithAccount("carl", "2031-05-01 11:30:00");
    EXPECT_THAT(Claim(9), ElementsAre(first, own));
    EXPECT_THAT(Claim(9), IsEmpty());
    GivePanelAnAccount();
    EXPECT_THAT(Claim(9), ElementsAre(second));
}

// Behaviour: A first registration holds back no job of another authority
TEST_P(ClaimedTurns, AFirstRegistrationElsewhereHoldsNobodyBack) {
    const int first = Add("anna", "2031-05-01 10:00:00");
    Job job = FindJob(first);
    job.authority = "ambrin-other";
    job.aliases = "other.example";
    const int elsewhere = AddJob(job);
    const int held = AddJob(job);
    EXPECT_THAT(Claim(9), ElementsAre(first, elsewhere));
    GivePanelAnAccount();
    EXPECT_THAT(Claim(9), IsEmpty()) << held << " waits for its own authority's";
}

// Behaviour: As long as the panel has no account ...
TEST_P(ClaimedTurns, AFailedRegistrationLetsTheNextTry) {
    const int first = Add("anna", "2031-05-01 10:00:00");
    const int second = Add("bert", "2031-05-01 11:00:00");
    EXPECT_THAT(Claim(9), ElementsAre(first));
    End(first);
    EXPECT_THAT(Claim(9), ElementsAre(second));
}

// Behaviour: A job that could exceed a limit of the authority waits until that is over, and says why
TEST_P(ClaimedTurns, AJobWaitsForALimit) {
    const int id = AddWithAccount("anna", kNow);
    const Job job = FindJob(id);
    Do([&](Transaction& transaction) {
        for (int i = 0; i < 4; ++i)
            NoteEnd(transaction, job, {{kNow, "failed", "challenge_req_attempt", ""}}, kNow);
    });
    EXPECT_THAT(Claim(9), IsEmpty());
    EXPECT_EQ(FindJob(id).due, "2031-05-01 13:00:01");
    EXPECT_THAT(FindJob(id).postponed, ::testing::HasSubstr("name1.example have failed 4 times"));
    EXPECT_EQ(turns_.Next(), "2031-05-01 13:00:01");
    clock_.Advance(std::chrono::seconds{3601});
    EXPECT_THAT(Claim(9), ElementsAre(id));
    EXPECT_EQ(FindJob(id).postponed, "");
}

// Behaviour: A stopped job whose time a wrong clock has put off begins anew about a day later
TEST_P(ClaimedTurns, AStoppedJobDoesNotWaitForAWrongClocksTime) {
    Job job;
    job.failed = true;
    job.failures = 3;
    job.last_run = "2035-01-01 00:00:00";
    job.time_started = "2034-12-31 00:00:00";
    job.due = "2035-01-02 00:00:00";
    const int id = AddJob(job);
    const int soon = AddDue("2031-05-02 06:00:00", &Job::failed);
    EXPECT_THAT(Claim(9), IsEmpty());
    EXPECT_GT(FindJob(id).due, "2031-05-02 00:00:00");
    EXPECT_LE(FindJob(id).due, "2031-05-02 12:00:00");
    EXPECT_TRUE(FindJob(id).failed);
    EXPECT_EQ(FindJob(soon).due, "2031-05-02 06:00:00");
}

// Behaviour: A new job that waits for a limit is left alone until then: its time is no wrong clock's
TEST_P(ClaimedTurns, ANewJobThatWaitsForALimitIsLeftAlone) {
    const int id = AddWithAccount("anna", kNow);
    const Job job = FindJob(id);
    Do([&](Transaction& transaction) {
        for (int i = 0; i < 4; ++i)
            NoteEnd(transaction, job, {{kNow, "failed", "challenge_req_attempt", ""}}, kNow);
    });
    EXPECT_THAT(Claim(9), IsEmpty());
    std::vector<std::string> told;
    store().TellOfDue([&](const std::string& due) { told.push_back(due); });
    EXPECT_THAT(Claim(9), IsEmpty());
    EXPECT_THAT(told, IsEmpty());
    EXPECT_EQ(FindJob(id).due, "2031-05-01 13:00:01");
    EXPECT_NE(FindJob(id).postponed, "");
    store().TellOfDue({});
}

// Behaviour: A user with 120 failing jobs does not delay another's only one
TEST_P(ClaimedTurns, AUserWithManyJobsDoesNotDelayAnothersOnlyOne) {
    GivePanelAnAccount();
    for (int i = 0; i < 120; ++i) AddWithAccount("anna", "2031-05-01 08:00:00");
    EXPECT_EQ(Claim(4).size(), 4U);
    const int only = AddWithAccount("bert", "2031-05-01 11:59:59");
    End(*under_way_.begin());
    EXPECT_THAT(Claim(1), ElementsAre(only));
}

// Behaviour: What the last look has found is used before the next one
TEST_P(ClaimedTurns, WhatTheLastLookHasFoundIsUsedFirst) {
    const int first = AddWithAccount("anna", "2031-05-01 10:00:00");
    const int second = AddWithAccount("anna", "2031-05-01 11:00:00");
    EXPECT_THAT(Claim(1), ElementsAre(first));
    const int newer = AddWithAccount("bert", "2031-05-01 09:00:00");
    EXPECT_FALSE(turns_.UsedUp());
    EXPECT_THAT(Claim(1, false), ElementsAre(second));
    EXPECT_TRUE(turns_.UsedUp());
    EXPECT_THAT(Claim(1, false), ElementsAre(newer));
}

// Behaviour: One look serves 512 starts, so each bears little of what it costs where many jobs are due
TEST_P(ClaimedTurns, OneLookServesManyStarts) {
    AddMany(513, "2031-05-01 10:00:00");
    EXPECT_EQ(Claim(1).size(), 1U);
    EXPECT_EQ(Claim(510, false).size(), 510U);
    EXPECT_FALSE(turns_.UsedUp());
    EXPECT_EQ(Claim(1, false).size(), 1U);
    EXPECT_TRUE(turns_.UsedUp());
}

// Behaviour: Looks at all due jobs take a twentieth of the time at most; a minute passes between two at most
TEST(PauseAfterLook, GrowsWithWhatTheLookTook) {
    using std::chrono::milliseconds;
    EXPECT_EQ(PauseAfterLook(milliseconds{0}), milliseconds{1000});
    EXPECT_EQ(PauseAfterLook(milliseconds{50}), milliseconds{1000});
    EXPECT_EQ(PauseAfterLook(milliseconds{200}), milliseconds{4000});
    EXPECT_EQ(PauseAfterLook(milliseconds{10'000}), milliseconds{60'000});
}

// Behaviour: What has been removed or paused since the last look takes no place, and what is due behind it
// does not
//   wait
TEST_P(ClaimedTurns, WhatIsGoneSinceTheLastLookTakesNoPlace) {
    const int first = AddWithAccount("anna", "2031-05-01 09:00:00");
    const int removed = AddWithAccount("anna", "2031-05-01 10:00:00");
    const int paused = AddWithAccount("anna", "2031-05-01 11:00:00");
    EXPECT_THAT(Claim(1), ElementsAre(first));
    const int newer = AddWithAccount("bert", "2031-05-01 09:00:00");
    Do([&](Transaction& transaction) {
        jobs::Remove(transaction, removed);
        restarts::Pause(transaction, paused);
    });
    EXPECT_FALSE(turns_.UsedUp());
    EXPECT_THAT(Claim(9, false), ElementsAre(newer));
}

// Behaviour: The next time to look is the earliest of what is due, stopped or to be renewed later
TEST_P(ClaimedTurns, TheNextTimeIsTheEarliestOne) {
    EXPECT_EQ(turns_.Next(), std::nullopt);
    Job job;
    job.verified = true;
    job.renew = "2031-05-04 00:00:00";
    AddJob(job);
    EXPECT_EQ(turns_.Next(), "2031-05-04 00:00:00");
    AddDue("2031-05-03 00:00:00", &Job::failed);
    EXPECT_EQ(turns_.Next(), "2031-05-03 00:00:00");
    AddDue("2031-05-02 00:00:00");
    AddDue("2031-05-01 00:00:00");
    EXPECT_EQ(turns_.Next(), "2031-05-02 00:00:00");
}

// Behaviour: A change that makes a job due, or a certificate be renewed, is told as soon as it is committed
TEST_P(ClaimedTurns, ChangesAreTold) {
    std::vector<std::string> told;
    store().TellOfDue([&](const std::string& due) { told.push_back(due); });
    const int id = AddDue("2031-05-02 00:00:00");
    EXPECT_THAT(told, ElementsAre("2031-05-02 00:00:00"));
    Do([&](Transaction& transaction) {
        restarts::SetValidity(transaction, "", "", {"2031-09-01 00:00:00", "2031-07-01 00:00:00"});
        restarts::Retry(transaction, id, kNow);
    });
    EXPECT_THAT(told, ElementsAre("2031-05-02 00:00:00", kNow)) << "the earliest one alone";
    {
        Transaction transaction(store());
        restarts::Retry(transaction, id, kNow);
    }
    EXPECT_EQ(told.size(), 2U) << "not committed";
    store().TellOfDue({});
}

// Behaviour: A change that makes a job due ...
TEST_P(ClaimedTurns, TheEndOfAPauseIsTold) {
    const int waiting = AddWithAccount("anna", "2031-05-01 11:00:00");
    const int stopped = AddDue("2031-05-03 00:00:00", &Job::failed);
    Job job;
    job.verified = true;
    job.renew = "2031-05-04 00:00:00";
    const int installed = AddJob(job);
    std::vector<std::string> told;
    store().TellOfDue([&](const std::string& due) { told.push_back(due); });
    for (const int id : {waiting, stopped, installed}) {
        Do([&](Transaction& transaction) { restarts::Pause(transaction, id); });
        Do([&](Transaction& transaction) { restarts::Resume(transaction, id, kNow); });
    }
    EXPECT_THAT(told, ElementsAre("2031-05-01 11:00:00", "2031-05-03 00:00:00", "2031-05-04 00:00:00"));
    store().TellOfDue({});
}

}  // namespace

}  // namespace zelvek::testing
