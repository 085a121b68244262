// What an authority allows is counted before it refuses.
#include "zelvek/jobs/limits.h"

#include "moved_clock.h"
#include "zelvek_store/engine.h"

namespace zelvek::testing {

namespace {

const std::vector<history::Event> kFailed{{kNow, "failed", "challenge_fail", ""}};
const std::vector<history::Event> kOrdered{{kNow, "processing", "order_success", ""}};

std::string Later(int seconds) { return vek_date::DateTime(kNow).AddSeconds(seconds).AsDateTime(); }

class Counted : public StoreTest {
protected:
    static Job JobFor(int id, const std::string& names) {
        Job job;
        job.id = id;
        job.aliases = names;
        job.kid = "https://ca.example/acct/1";
        return job;
    }

    void Run(const Job& job, const std::vector<history::Event>& events, const std::string& now) {
        Do([&](Transaction& transaction) {
            NoteRun(transaction, job, now);
            NoteEnd(transaction, job, events, now);
        });
    }

    /// Until when a run of the job has to wait; empty: not at all.
    std::string Until(const Job& job, const std::string& now, const Limits& limits = {}) {
        return Do([&](Transaction& transaction) {
            const auto hold = HeldBack(transaction, job, limits, now);
            return hold ? hold->until : std::string();
        });
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, Counted, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Scheduling

// Behaviour: After four failed checks of a name within an hour no job with this name is run until the first
// of them
//   is an hour old, a wildcard below it too; jobs with other names go on
TEST_P(Counted, FourFailuresOfANameWithinAnHour) {
    const Job job = JobFor(1, "shop.example www.shop.example");
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(Until(job, Later(10 * i)), "") << i;
        Run(job, kFailed, Later(10 * i));
    }
    EXPECT_EQ(Until(job, Later(40)), Later(3601));
    EXPECT_EQ(Until(JobFor(2, "other.example WWW.shop.example"), Later(40)), Later(3601));
    EXPECT_EQ(Until(JobFor(3, "*.shop.example"), Later(40)), Later(3601));
    EXPECT_EQ(Until(JobFor(4, "other.example"), Later(40)), "");
    EXPECT_EQ(Until(job, Later(3601)), "");
    Run(job, kFailed, Later(3601));
    EXPECT_EQ(Until(job, Later(3602)), Later(3611)) << "the second is now the first of four";
}

// Behaviour: Runs under way count as ones that fail and order, until they have ended otherwise
TEST_P(Counted, RunsUnderWayCount) {
    const Limits one{1, 1};
    const Job job = JobFor(1, "shop.example");
    const Job other = JobFor(2, "other.example");
    Do([&](Transaction& transaction) { NoteRun(transaction, job, kNow); });
    EXPECT_EQ(Until(job, kNow, {1, 9}), Later(3601));
    EXPECT_EQ(Until(other, kNow, one), Later(3 * 3600 + 1));
    Do([&](Transaction& transaction) { NoteEnd(transaction, job, {}, kNow); });
    EXPECT_EQ(Until(job, kNow, one), "");
    EXPECT_EQ(Until(other, kNow, one), "");
}

// Behaviour: An account's orders within three hours are limited; a run that goes on with an order needs none
TEST_P(Counted, OrdersOfAnAccountWithinThreeHours) {
    const Limits two{9, 2};
    Run(JobFor(1, "a.example"), kOrdered, Later(0));
    Run(JobFor(2, "b.example"), kOrdered, Later(60));
    const Job third = JobFor(3, "c.example");
    EXPECT_EQ(Until(third, Later(70), two), Later(3 * 3600 + 1));
    Job goes_on = third;
    goes_on.attempt_count = 1;
    goes_on.challenges = "[{}]";
    EXPECT_EQ(Until(goes_on, Later(70), two), "");
    Job of_another = third;
    of_another.kid = "https://ca.example/acct/2";
    EXPECT_EQ(Until(of_another, Later(70), two), "");
    EXPECT_EQ(Until(third, Later(3 * 3600 + 1), two), "");
}

// Behaviour: What one authority allows is counted without the use of another one: orders before there is
//   an account, and failed checks
TEST_P(Counted, AuthoritiesAreCountedApart) {
    Job here = JobFor(1, "shop.example");
    here.kid.clear();
    Job there = here;
    there.id = 2;
    there.authority = "ambrin-other";
    Do([&](Transaction& transaction) { NoteRun(transaction, here, kNow); });
    EXPECT_EQ(Until(there, kNow, {1, 1}), "");
    Do([&](Transaction& transaction) { NoteRun(transaction, there, kNow); });
    Job third = there;
    third.id = 3;
    EXPECT_EQ(Until(third, kNow, {1, 9}), Later(3601));
    EXPECT_EQ(Until(third, kNow, {9, 1}), Later(3 * 3600 + 1));
    Run(there, kFailed, kNow);
    Do([&](Transaction& transaction) { NoteEnd(transaction, here, {}, kNow); });
    EXPECT_EQ(Until(here, kNow, {1, 9}), "");
    EXPECT_EQ(Until(third, kNow, {1, 9}), Later(3601));
}

// Behaviour: A run that died may have placed its order, so that counts
TEST_P(Counted, ADeadRunHasOrdered) {
    const Limits one{1, 1};
    const Job job = JobFor(1, "shop.example");
    Do([&](Transaction& transaction) {
        NoteRun(transaction, job, kNow);
        NoteDeath(transaction, job.id);
        NoteRun(transaction, JobFor(2, "b.example"), kNow);
        NoteEnd(transaction, JobFor(2, "b.example"), {}, kNow);
    });
    EXPECT_EQ(Until(JobFor(3, "c.example"), kNow, one), Later(3 * 3600 + 1));
    EXPECT_EQ(Until(job, kNow, {1, 9}), "") << "a failure is not taken for granted";
}

// Behaviour: A clock that was ahead while something was counted makes nobody wait longer than the limit's
// time
TEST_P(Counted, TimesInTheFutureAreNow) {
    const Job job = JobFor(1, "shop.example");
    Run(job, kFailed, "2999-01-01 00:00:00");
    EXPECT_EQ(Until(job, kNow, {1, 9}), Later(3601));
}

// Behaviour: What no limit needs any more is forgotten
TEST_P(Counted, OldUseIsForgotten) {
    Run(JobFor(1, "shop.example"), kFailed, kNow);
    Run(JobFor(1, "shop.example"), kOrdered, Later(3600));
    Do([&](Transaction& transaction) { ForgetOldUse(transaction, Later(3 * 3600 + 1)); });
    EXPECT_EQ(Rows("authority_use"), 1);
}

}  // namespace

}  // namespace zelvek::testing
