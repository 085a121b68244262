// Runs of jobs in the store: which are due, and who has them.
#include "zelvek/store/runs.h"

#include <limits>

#include "engine.h"
#include "zelvek/store/jobs.h"

namespace zelvek::testing {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class StoredRuns : public StoreTest {
protected:
    std::vector<int> Due(const std::string& now, int limit = 100) {
        Transaction transaction(store());
        return runs::Due(transaction, now, limit);
    }

    int JobOf(const Process& process) {
        Transaction transaction(store());
        return runs::JobOf(transaction, process);
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, StoredRuns, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: Waiting and stopped jobs whose times lie too far in the future are found, others are not
TEST_P(StoredRuns, WithTimesInTheFutureAreFound) {
    const auto add = [&](const std::string& last_run, const std::string& next, const std::string& due,
                         bool Job::*flag = nullptr) {
        Job job;
        job.last_run = last_run;
        job.next_attempt = next;
        job.due = due;
        if (flag != nullptr) job.*flag = true;
        return AddJob(job);
    };
    const std::string past = "2026-01-01 00:00:00";
    const std::string now = "2026-01-02 00:00:00";
    const std::string later = "2026-01-02 12:00:00";
    const std::string latest = "2026-01-03 00:00:00";
    const std::string too_late = "2026-01-03 00:00:01";
    const std::vector<int> expected{add(later, "", later),
                                    add(later, later, later),
                                    add("", "", later),
                                    add(past, too_late, too_late),
                                    add("never", "", past),
                                    add(past, "", "never"),
                                    add(later, "", too_late, &Job::failed)};
    for (const std::string& due : {past, now, later, latest}) {
        add(past, due, due);
        add(now, due, due);
        add("", due, due);
    }
    add("", "", now);
    for (bool Job::*flag : {&Job::verified, &Job::processing}) add(later, "", "never", flag);
    add(later, "", latest, &Job::failed);
    const auto find = [&](int limit) {
        return Do(
            [&](Transaction& transaction) { return runs::WaitingTooLong(transaction, now, latest, limit); });
    };
    EXPECT_EQ(find(100), expected);
    EXPECT_EQ(find(1).size(), 4U) << "one for each reason";
}

// Behaviour: A job's times are stored, and nothing else of it
TEST_P(StoredRuns, TimesAreStoredAlone) {
    const int id = AddJob(FilledJob("before"));
    Job expected = FindJob(id);
    Job changed = FilledJob("after");
    changed.id = id;
    Do([&](Transaction& transaction) { runs::SetTimes(transaction, changed); });
    for (const auto member : {&Job::time_started, &Job::last_run, &Job::next_attempt, &Job::due}) {
        expected.*member = changed.*member;
    }
    EXPECT_EQ(FindJob(id), expected);
}

// Behaviour: Jobs that are due come in the order of their times, then of their numbers, as many as asked
//   for; none of them is verified, failed or under way
TEST_P(StoredRuns, AreDueInTheOrderOfTheirTimes) {
    const int late = AddDue("2026-01-03 00:00:00");
    const int early = AddDue("2026-01-01 00:00:00");
    const int now = AddDue("2026-01-05 00:00:00");
    const int also_late = AddDue("2026-01-03 00:00:00");
    AddDue("2026-01-05 00:00:01");
    AddDue("2025-01-01 00:00:00", &Job::verified);
    AddDue("2025-01-01 00:00:00", &Job::failed);
    AddDue("2025-01-01 00:00:00", &Job::processing);
    EXPECT_THAT(Due("2026-01-05 00:00:00"), ElementsAre(early, late, also_late, now));
    EXPECT_THAT(Due("2026-01-05 00:00:00", 2), ElementsAre(early, late));
    EXPECT_THAT(Due("2025-12-31 00:00:00"), IsEmpty());
}

// Behaviour: Users take turns: a user's many due jobs come after another's first one, and after what the
// user
//   has running
TEST_P(StoredRuns, AreDueInTurnsBetweenUsers) {
    const auto add = [&](const std::string& user, const std::string& due, bool running = false) {
        Job job = FilledJob(user + due);
        job.user_name = user;
        job.due = due;
        job.verified = job.failed = false;
        job.processing = running;
        Do([&](Transaction& transaction) {
            job.id = jobs::Add(transaction, job);
            jobs::Save(transaction, job);
        });
        return job.id;
    };
    const int first = add("anna", "2026-01-01 00:00:00");
    const int second = add("anna", "2026-01-01 00:00:01");
    const int only = add("bert", "2026-01-02 00:00:00");
    EXPECT_THAT(Due("2026-01-05 00:00:00"), ElementsAre(first, only, second));
    add("anna", "2026-01-01 00:00:00", true);
    EXPECT_THAT(Due("2026-01-05 00:00:00"), ElementsAre(only, first, second));
}

// Behaviour: A job is claimed only while it is due and nobody works on it
TEST_P(StoredRuns, AreClaimedOnlyWhileDue) {
    const int id = AddDue("2026-01-03 00:00:00");
    const auto claim = [&](const std::string& now) {
        bool claimed = false;
        Do([&](Transaction& transaction) { claimed = runs::ClaimIfDue(transaction, id, Living(), now); });
        return claimed;
    };
    EXPECT_FALSE(claim("2026-01-02 23:59:59"));
    EXPECT_TRUE(claim("2026-01-03 00:00:00"));
    EXPECT_FALSE(claim("2026-01-03 00:00:00"));
}

// Behaviour: A claimed job is under way and its process's, and so is one that was read; only the reader's
//   publications are the job's
TEST_P(StoredRuns, AreClaimedAndHeld) {
    const OtherProcess other;
    const int claimed = AddJob(FilledJob("a"));
    const int held = AddJob(FilledJob("b"));
    Do([&](Transaction& transaction) {
        runs::Claim(transaction, claimed, Living());
        runs::Hold(transaction, held, other.process());
    });
    EXPECT_TRUE(FindJob(claimed).processing);
    EXPECT_EQ(FindJob(claimed).holder, Living());
    EXPECT_TRUE(FindJob(held).processing);
    EXPECT_EQ(FindJob(held).holder, other.process());
    EXPECT_EQ(JobOf(Living()), 0);
    EXPECT_EQ(JobOf(other.process()), held);
    EXPECT_THAT(Differences(FindJob(held), FilledJob("b")), ElementsAre("processing", "postponed"));
}

// Behaviour: Of the jobs that a process has read the last one is its job; a process that has the same id
//   after it has none
TEST_P(StoredRuns, AProcessHasTheJobThatItReadLast) {
    const int first = AddJob();
    const int second = AddJob();
    Do([&](Transaction& transaction) {
        runs::Hold(transaction, second, Dead());
        runs::Hold(transaction, second, Living());
        runs::Hold(transaction, first, Living());
    });
    EXPECT_EQ(JobOf(Living()), first);
    EXPECT_EQ(JobOf(Dead()), 0);
}

// Behaviour: Dead processes are forgotten, living ones are not
TEST_P(StoredRuns, ReadersThatDiedAreForgotten) {
    const OtherProcess other;
    const int id = AddJob();
    Do([&](Transaction& transaction) {
        runs::Hold(transaction, id, Dead());
        runs::Hold(transaction, id, other.process());
        runs::ForgetDeadProcesses(transaction);
    });
    EXPECT_EQ(JobOf(Dead()), 0);
    EXPECT_EQ(JobOf(other.process()), id);
    EXPECT_EQ(Rows("reader"), 1);
}

// Behaviour: A process with the largest id and start time comes back
TEST_P(StoredRuns, LargeProcessNumbersComeBack) {
    const Process process{std::numeric_limits<pid_t>::max(), std::numeric_limits<long long>::max()};
    const int id = AddJob();
    Do([&](Transaction& transaction) { runs::Hold(transaction, id, process); });
    EXPECT_EQ(FindJob(id).holder, process);
    EXPECT_EQ(JobOf(process), id);
}

// Behaviour: A freed job is no longer under way, has the times given, and its last run has died; all else of
// it
//   stays
TEST_P(StoredRuns, AreFreed) {
    Job job = FilledJob("a");
    job.processing = true;
    const int id = AddJob(job);
    Do([&](Transaction& transaction) { runs::Claim(transaction, id, Living()); });
    job.id = id;
    job.last_run = "last";
    job.failures = 7;
    job.due = "next";
    job.notice_due = "look";
    Do([&](Transaction& transaction) { runs::Free(transaction, job); });
    job.processing = false;
    job.died = true;
    job.postponed.clear();
    EXPECT_THAT(Differences(FindJob(id), job), IsEmpty());
}

}  // namespace

}  // namespace zelvek::testing
