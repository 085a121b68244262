// What has happened to jobs.
#include "zelvek/store/history.h"

#include "engine.h"
#include "zelvek/base/error.h"

namespace zelvek::testing {

namespace {

using ::testing::ElementsAre;
using ::testing::FieldsAre;
using ::testing::IsEmpty;

class StoredHistory : public StoreTest {
protected:
    void Add(int job, const std::string& time, const std::string& event = "e") {
        Do([&](Transaction& transaction) { history::Add(transaction, job, {time, "s", event, "d"}); });
    }

    std::vector<history::Event> Of(int job) {
        Transaction transaction(store());
        return history::Of(transaction, job);
    }

    /// The names of the job's events.
    std::vector<std::string> Names(int job) {
        std::vector<std::string> names;
        for (const auto& event : Of(job)) names.push_back(event.event);
        return names;
    }

    void Shorten(int job, int most) {
        Do([&](Transaction& transaction) { history::Shorten(transaction, job, most); });
    }

    long long RemoveOlder(const std::string& time, int limit) {
        return Do([&](Transaction& transaction) { return history::RemoveOlder(transaction, time, limit); });
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, StoredHistory, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: A job's events come in the order in which they were written, whatever their times, each job's
//   alone
TEST_P(StoredHistory, ComesInTheOrderOfTheWriteBacks) {
    const int id = AddJob();
    const int other = AddJob();
    Do([&](Transaction& transaction) {
        history::Add(transaction, id, {"2026-01-02 00:00:00", "processing", "b", "detail"});
        history::Add(transaction, other, {"2026-01-03 00:00:00", "failed", "x", ""});
        history::Add(transaction, id, {"2026-01-01 00:00:00", "success", "a", ""});
    });
    Reopen();
    EXPECT_THAT(Of(id), ElementsAre(FieldsAre("2026-01-02 00:00:00", "processing", "b", "detail"),
                                    FieldsAre("2026-01-01 00:00:00", "success", "a", "")));
    EXPECT_THAT(Names(other), ElementsAre("x"));
    EXPECT_THAT(Of(77), IsEmpty());
}

// Behaviour: Any text comes back from the store unchanged ...
TEST_P(StoredHistory, AnyTextComesBack) {
    const int id = AddJob();
    for (const std::string& text : AwkwardTexts()) {
        Do([&](Transaction& transaction) { history::Add(transaction, id, {text, text, text, text}); });
        EXPECT_THAT(Of(id).back(), FieldsAre(text, text, text, text));
    }
}

// Behaviour: No event is kept of a job that is not there
TEST_P(StoredHistory, NeedsItsJob) {
    EXPECT_THROW(Add(77, "t"), Error);
    EXPECT_EQ(Rows("job_event"), 0);
}

// Behaviour: A shortened history keeps its newest events, and other jobs keep theirs
TEST_P(StoredHistory, IsShortenedToItsNewestEvents) {
    const int id = AddJob();
    const int other = AddJob();
    for (const std::string name : {"a", "b", "c", "d"}) {
        Add(id, "t", name);
        Add(other, "t", name);
    }
    Shorten(id, 4);
    EXPECT_THAT(Names(id), ElementsAre("a", "b", "c", "d"));
    Shorten(id, 2);
    EXPECT_THAT(Names(id), ElementsAre("c", "d"));
    Shorten(id, 1000);
    EXPECT_THAT(Names(id), ElementsAre("c", "d"));
    Shorten(id, 0);
    EXPECT_THAT(Names(id), IsEmpty());
    EXPECT_THAT(Names(other), ElementsAre("a", "b", "c", "d"));
}

// Behaviour: Old events are forgotten a few at a time, until none is left that is older; newer ones stay
TEST_P(StoredHistory, OfOldIsForgottenInSteps) {
    const int id = AddJob();
    const int other = AddJob();
    EXPECT_EQ(RemoveOlder("2026-01-01 00:00:00", 10), 0);
    for (int day = 1; day <= 7; ++day) {
        Add(day % 2 == 0 ? id : other, "2026-01-0" + std::to_string(day) + " 00:00:00", std::to_string(day));
    }
    const std::string limit = "2026-01-06 00:00:00";
    EXPECT_EQ(RemoveOlder(limit, 2), 2);
    EXPECT_THAT(Names(other), ElementsAre("3", "5", "7"));
    EXPECT_THAT(Names(id), ElementsAre("4", "6"));
    EXPECT_EQ(RemoveOlder(limit, 2), 2);
    EXPECT_EQ(RemoveOlder(limit, 2), 1);
    EXPECT_EQ(RemoveOlder(limit, 2), 0);
    EXPECT_THAT(Names(other), ElementsAre("7"));
    EXPECT_THAT(Names(id), ElementsAre("6"));
}

// Behaviour: The newest failure of a job is found among its events
TEST_P(StoredHistory, TellsTheNewestFailure) {
    const int id = AddJob();
    const auto last = [&] {
        return Do([&](Transaction& transaction) { return history::LastFailure(transaction, id); });
    };
    Add(id, "2026-01-01 00:00:00");
    EXPECT_FALSE(last());
    for (const std::string event : {"first", "second"}) {
        Do([&](Transaction& transaction) {
            history::Add(transaction, id, {"2026-01-01 00:00:00", "failed", event, "why"});
        });
    }
    Add(id, "2026-01-02 00:00:00");
    ASSERT_TRUE(last());
    EXPECT_EQ(last()->event, "second");
    EXPECT_EQ(last()->detail, "why");
}

// Behaviour: Old events are forgotten though an event of a wrong clock, far ahead, stands before them
TEST_P(StoredHistory, OfOldIsForgottenBehindATimeFarAhead) {
    const int id = AddJob();
    for (const std::string name : {"a", "b", "c"}) Add(id, "2999-01-01 00:00:00", name);
    Add(id, "2026-01-01 00:00:00", "old");
    EXPECT_EQ(RemoveOlder("2026-02-01 00:00:00", 2), 1);
    EXPECT_THAT(Names(id), ElementsAre("a", "b", "c"));
}

}  // namespace

}  // namespace zelvek::testing
