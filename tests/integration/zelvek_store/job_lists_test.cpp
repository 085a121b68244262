// Lists of jobs for people: what needs attention first.
#include "zelvek/store/job_lists.h"

#include <algorithm>

#include "engine.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/restarts.h"
#include "zelvek/store/runs.h"

namespace zelvek::testing {

namespace {

using job_lists::Kind;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class JobLists : public StoreTest {
protected:
    /// All of a list, read in pages of that size.
    std::vector<int> Read(job_lists::Selection selection, int page = 100) {
        selection.limit = page;
        std::vector<int> ids;
        for (bool more = true; more;) {
            const auto some =
                Do([&](Transaction& transaction) { return job_lists::Some(transaction, selection); });
            for (const Job& job : some) ids.push_back(job.id);
            more = some.size() == static_cast<std::size_t>(page);
            if (!some.empty()) selection.after = job_lists::PlaceOf(selection, some.back());
        }
        return ids;
    }

    int Add(const std::function<void(Job&)>& change) {
        Job job;
        job.user_name = "anna";
        change(job);
        return AddJob(job);
    }

    /// A job in each combination of what says in which list it is, two of each.
    std::vector<int> AddOfEveryKind() {
        std::vector<int> ids;
        for (int bits = 0; bits < 64; ++bits) {
            ids.push_back(Add([&](Job& job) {
                job.verified = (bits & 1) != 0;
                job.failed = (bits & 2) != 0;
                job.processing = (bits & 4) != 0;
                job.paused = (bits & 8) != 0;
                job.failures = (bits & 16) != 0 ? 3 : 0;
                job.user_name = (bits & 32) != 0 ? "bob" : "anna";
                job.due = std::to_string(bits * 7 % 5);
                job.expires = std::to_string(bits * 5 % 7);
            }));
        }
        return ids;
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, JobLists, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: Each job is in one of the lists that are sorted by what needs attention, and is found there
//   whatever the size of the pages
TEST_P(JobLists, HaveEachJobOnce) {
    const std::vector<int> all = AddOfEveryKind();
    for (const std::string user : {"", "anna"}) {
        for (const int page : {1, 3, 100}) {
            std::vector<int> found;
            for (const Kind kind : job_lists::kByAttention) {
                for (const int id : Read({kind, user}, page)) {
                    EXPECT_EQ(job_lists::KindOf(FindJob(id)), kind) << id;
                    found.push_back(id);
                }
            }
            std::sort(found.begin(), found.end());
            EXPECT_EQ(found.size(), user.empty() ? 64U : 32U);
            EXPECT_EQ(std::unique(found.begin(), found.end()), found.end());
            EXPECT_TRUE(std::includes(all.begin(), all.end(), found.begin(), found.end()));
        }
    }
}

// Behaviour: How many jobs are in which state is known at any time, and of an older version's jobs, too
TEST_P(JobLists, AreCounted) {
    std::vector<int> all = AddOfEveryKind();
    for (std::size_t i = 0; i < all.size(); i += 3)
        Do([&](Transaction& transaction) { jobs::Remove(transaction, all[i]); });
    for (std::size_t i = 1; i < all.size(); i += 3) {
        Do([&](Transaction& transaction) {
            Job job = jobs::Find(transaction, all[i]);
            std::swap(job.paused, job.verified);
            std::swap(job.failed, job.processing);
            job.failures = 1 - std::min(job.failures, 1);
            jobs::Save(transaction, job);
        });
    }
    long long total = 0;
    for (const Kind kind : job_lists::kByAttention) {
        const auto count = Do([&](Transaction& transaction) { return job_lists::Count(transaction, kind); });
        EXPECT_EQ(static_cast<std::size_t>(count), Read({kind}).size());
        total += count;
    }
    EXPECT_EQ(total, 42);
    EXPECT_EQ(total, Rows("job"));
}

// Behaviour: Waiting jobs are listed by the time of their next run, installed certificates by their end
TEST_P(JobLists, AreSortedByWhatComesNext) {
    const auto waiting = [&](const std::string& due, int failures) {
        return Add([&](Job& job) {
            job.due = due;
            job.failures = failures;
        });
    };
    const auto verified = [&](const std::string& end) {
        return Add([&](Job& job) {
            job.verified = true;
            job.expires = end;
        });
    };
    const int later = waiting("2", 0), soon = waiting("1", 0), failing = waiting("3", 1),
              same = waiting("1", 0);
    const int far = verified("2031"), near = verified("2030"), unknown = verified("");
    EXPECT_THAT(Read({Kind::kOnItsWay}), ElementsAre(soon, same, later));
    EXPECT_THAT(Read({Kind::kFailing}), ElementsAre(failing));
    EXPECT_THAT(Read({Kind::kWaiting}, 1), ElementsAre(soon, same, later, failing));
    EXPECT_THAT(Read({Kind::kWaiting, "anna"}, 1), ElementsAre(later, soon, failing, same)) << "by id";
    EXPECT_THAT(Read({Kind::kVerified}), ElementsAre(unknown, near, far));
}

// Behaviour: Jobs that are due, or whose certificates end, until a time are listed, of one user or all
TEST_P(JobLists, HaveWhatIsDueOrEndsUntilATime) {
    const int second = Add([](Job& job) {
        job.due = "2";
        job.expires = "2030";
    });
    const int first = Add([](Job& job) {
        job.due = "1";
        job.verified = true;
        job.expires = "2029";
    });
    const int third = Add([](Job& job) {
        job.user_name = "bob";
        job.due = "1";
        job.expires = "2028";
        job.paused = true;
    });
    Add([](Job& job) { job.due = "3"; });
    const auto until = [](Kind kind, const std::string& user, const std::string& time) {
        return job_lists::Selection{kind, user, {}, 0, time};
    };
    EXPECT_THAT(Read(until(Kind::kDue, "", "2")), ElementsAre(second)) << "neither installed nor paused";
    EXPECT_THAT(Read(until(Kind::kDue, "anna", "2")), ElementsAre(second));
    EXPECT_THAT(Read(until(Kind::kDue, "", "1")), IsEmpty());
    EXPECT_THAT(Read(until(Kind::kEnding, "", "2030"), 1), ElementsAre(third, first, second));
    EXPECT_THAT(Read(until(Kind::kEnding, "anna", "2030"), 1), ElementsAre(first, second));
    EXPECT_THAT(Read(until(Kind::kEnding, "", "2028")), ElementsAre(third));
}

// Behaviour: A paused job is neither due, nor renewed, nor begun anew, nor mended, until it is resumed
TEST_P(JobLists, PausedJobsAreOutOfAllThatStartsJobs) {
    const int waiting = Add([](Job& job) { job.due = "1"; });
    const int lost = Add([](Job& job) { job.due = "9"; });
    const int stopped = Add([](Job& job) {
        job.failed = true;
        job.due = "1";
    });
    const int verified = Add([](Job& job) {
        job.verified = true;
        job.renew = "1";
        job.expires = "3";
    });
    const auto started = [&] {
        return Do([&](Transaction& transaction) {
            std::vector<std::vector<int>> all{runs::Due(transaction, "2", 9),
                                              runs::WaitingTooLong(transaction, "2", "3", 9),
                                              restarts::RenewalDue(transaction, "2", 9),
                                              restarts::StoppedDue(transaction, "2", 9),
                                              restarts::ToRetry(transaction, 0, 9, ""),
                                              restarts::ToRenew(transaction, {0, 9, "", ""})};
            std::vector<int> ids;
            for (const auto& some : all) ids.insert(ids.end(), some.begin(), some.end());
            return ids;
        });
    };
    const std::vector<int> before = started();
    EXPECT_THAT(before, ElementsAre(waiting, lost, verified, stopped, waiting, lost, stopped, verified));
    for (const int id : {waiting, lost, stopped, verified}) {
        Do([&](Transaction& transaction) { restarts::Pause(transaction, id); });
        EXPECT_TRUE(FindJob(id).paused);
    }
    EXPECT_THAT(started(), IsEmpty());
    EXPECT_FALSE(
        Do([&](Transaction& transaction) { return runs::ClaimIfDue(transaction, waiting, Living(), "2"); }));
    Reopen();
    EXPECT_THAT(started(), IsEmpty());
    for (const int id : {waiting, lost, stopped, verified}) {
        Do([&](Transaction& transaction) { restarts::Resume(transaction, id, "2026-01-01 00:00:00"); });
        EXPECT_FALSE(FindJob(id).paused);
    }
    EXPECT_EQ(FindJob(stopped).due, "1");
    EXPECT_TRUE(FindJob(verified).verified);
}

// Behaviour: A job whose pause ends goes on with its order, or begins anew where its day is over
TEST_P(JobLists, AResumedJobGoesOnOrBeginsAnew) {
    const auto resumed = [&](const std::string& started) {
        Job job = FilledJob("a");
        job.time_started = started;
        job.paused = true;
        const int id = AddJob(job);
        Do([&](Transaction& transaction) { restarts::Resume(transaction, id, "2026-01-02 00:00:00"); });
        return FindJob(id);
    };
    EXPECT_EQ(resumed("2026-01-01 00:00:01").challenges, "a challenges");
    EXPECT_EQ(resumed("2026-01-01 00:00:01").time_started, "2026-01-01 00:00:01");
    for (const std::string started : {"2026-01-01 00:00:00", "never"}) {
        EXPECT_EQ(resumed(started).challenges, "");
        EXPECT_EQ(resumed(started).time_started, "2026-01-02 00:00:00");
        EXPECT_EQ(resumed(started).due, "2026-01-02 00:00:00");
    }
}

}  // namespace

}  // namespace zelvek::testing
