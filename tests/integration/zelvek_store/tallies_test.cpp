// What is counted while it happens.
#include "zelvek/store/tallies.h"

#include "engine.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/problems.h"
#include "zelvek/store/usage.h"

namespace zelvek::testing {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

class Tallies : public StoreTest {
protected:
    std::vector<std::pair<std::string, long long>> Ends(const std::string& after = "", int limit = 100) {
        const auto read = [&](Transaction& transaction) {
            return tallies::OfEnds(transaction, after, limit);
        };
        std::vector<std::pair<std::string, long long>> ends;
        for (const tallies::Ends& day : Do(read)) ends.emplace_back(day.day, day.jobs);
        return ends;
    }

    int AddEnding(const std::string& expires) {
        Job job;
        job.user_name = "anna";
        job.expires = expires;
        return AddJob(job);
    }

    void SetEnd(int id, const std::string& expires) {
        Do([&](Transaction& transaction) {
            Job job = jobs::Find(transaction, id);
            job.expires = expires;
            jobs::Save(transaction, job);
        });
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, Tallies, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Watching the service

// Behaviour: Ended runs are counted by result and reason, and by how long they took, whatever restarts
TEST_P(Tallies, OfRunsOutliveARestart) {
    for (const std::string reason : {"none", "refused", "none"}) {
        Do([&](Transaction& transaction) {
            tallies::CountRun(transaction, "waiting", reason);
            tallies::CountDuration(transaction, {reason == "none" ? 5 : 0, 1, 2500});
        });
    }
    Reopen();
    std::map<std::string, long long> runs;
    for (const auto& some : Do([](Transaction& transaction) { return tallies::OfRuns(transaction); }))
        runs[some.outcome + " " + some.reason] = some.number;
    EXPECT_THAT(runs, UnorderedElementsAre(Pair("waiting none", 2), Pair("waiting refused", 1)));
    std::map<long long, std::pair<long long, long long>> durations;
    for (const auto& some : Do([](Transaction& transaction) { return tallies::OfDurations(transaction); }))
        durations[some.bound] = {some.runs, some.milliseconds};
    EXPECT_THAT(durations, UnorderedElementsAre(Pair(0, Pair(1, 2500)), Pair(5, Pair(2, 5000))));
}

// Behaviour: Certificates are counted by the day of their end, as they come, are renewed and go
TEST_P(Tallies, OfEndsFollowTheJobs) {
    const int first = AddEnding("2031-05-04 10:00:00");
    const int second = AddEnding("2031-05-04 23:59:59");
    AddEnding("2031-04-01 00:00:00");
    const int none = AddEnding("");
    EXPECT_THAT(Ends(), ElementsAre(Pair("2031-04-01", 1), Pair("2031-05-04", 2)));
    EXPECT_THAT(Ends("2031-04-01"), ElementsAre(Pair("2031-05-04", 2)));
    EXPECT_THAT(Ends("", 1), ElementsAre(Pair("2031-04-01", 1)));
    SetEnd(first, "2031-08-01 10:00:00");
    SetEnd(none, "2031-08-01 11:00:00");
    Do([&](Transaction& transaction) { jobs::Remove(transaction, second); });
    EXPECT_THAT(Ends(), ElementsAre(Pair("2031-04-01", 1), Pair("2031-08-01", 2)));
    SetEnd(none, "");
    EXPECT_THAT(Ends(), ElementsAre(Pair("2031-04-01", 1), Pair("2031-08-01", 1)));
}

// Behaviour: Notifications are counted by state, as they are raised, seen, resolved and forgotten
TEST_P(Tallies, OfNoticesFollowTheNotifications) {
    const auto counts = [&] {
        auto all = Do([](Transaction& transaction) { return tallies::OfNotices(transaction); });
        std::erase_if(all, [](const auto& state) { return state.second == 0; });
        return all;
    };
    EXPECT_THAT(counts(), IsEmpty());
    Do([](Transaction& transaction) {
        for (const std::string about : {"a", "b", "c"})
            problems::Raise(transaction, {.name = "n", .time = "2031-01-01 00:00:00", .about = about});
        problems::Raise(transaction, {.name = "m", .time = "2031-01-01 00:00:00", .news = true});
        problems::SetSeen(transaction, problems::List(transaction, problems::State::kAny, 0, 1).at(0).number);
        problems::Resolve(transaction, "n", "", "c");
    });
    EXPECT_THAT(counts(), UnorderedElementsAre(Pair("raised", 1), Pair("seen", 1), Pair("resolved", 1),
                                               Pair("news", 1)));
    Do([](Transaction& transaction) { problems::RemoveOlder(transaction, "2031-02-01 00:00:00", 10, 10); });
    EXPECT_THAT(counts(), IsEmpty());
}

// Behaviour: What an authority limits is counted for one subject since a time, up to a number
TEST_P(Tallies, OfUsesAreBounded) {
    Do([](Transaction& transaction) {
        for (const std::string time : {"1", "2", "3"})
            usage::Note(transaction, 1, {usage::Kind::kOrder, "account", time, false});
        usage::Note(transaction, 1, {usage::Kind::kOrder, "other", "3", false});
        usage::Note(transaction, 1, {usage::Kind::kFailure, "account", "3", false});
    });
    const auto count = [&](int most) {
        return Do([&](Transaction& transaction) {
            return usage::CountSince(transaction, usage::Kind::kOrder, "account", "1", most);
        });
    };
    EXPECT_EQ(count(10), 2);
    EXPECT_EQ(count(1), 1);
}

}  // namespace

}  // namespace zelvek::testing
