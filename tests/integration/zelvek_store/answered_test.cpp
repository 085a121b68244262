// Queries that have been carried out.
#include "zelvek/store/answered.h"

#include "engine.h"
#include "zelvek/base/error.h"

namespace zelvek::testing {

namespace {

class StoredAnswers : public StoreTest {
protected:
    void Put(const std::string& identity, const std::string& answer,
             const std::string& time = "2026-01-01 00:00:00") {
        Do([&](Transaction& transaction) { answered::Put(transaction, identity, answer, time); });
    }

    std::string Find(const std::string& identity) {
        Transaction transaction(store());
        return answered::Find(transaction, identity).value_or("none");
    }

    long long RemoveOlder(const std::string& time, int limit) {
        return Do([&](Transaction& transaction) { return answered::RemoveOlder(transaction, time, limit); });
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, StoredAnswers, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: The answer to a query is found by the query's identity, after a restart too; it is kept once
TEST_P(StoredAnswers, AreFoundByTheirQuerysIdentity) {
    EXPECT_EQ(Find("a"), "none");
    Put("a", "first");
    Put("b", "");
    Reopen();
    EXPECT_EQ(Find("a"), "first");
    EXPECT_EQ(Find("b"), "");
    EXPECT_EQ(Find("A"), "none");
    EXPECT_THROW(Put("a", "second"), Error);
    EXPECT_EQ(Find("a"), "first");
}

// Behaviour: Any text comes back from the store unchanged ...
TEST_P(StoredAnswers, OfAnyTextComeBack) {
    for (const std::string& text : AwkwardTexts()) {
        Put("identity " + text, text);
        EXPECT_EQ(Find("identity " + text), text);
    }
}

// Behaviour: Old answers are forgotten a few at a time, the oldest first; newer ones stay
TEST_P(StoredAnswers, OfOldAreForgottenInSteps) {
    for (int hour = 5; hour >= 1; --hour)
        Put(std::to_string(hour), "", "2026-01-01 0" + std::to_string(hour) + ":00:00");
    const std::string limit = "2026-01-01 04:00:00";
    EXPECT_EQ(RemoveOlder("2026-01-01 01:00:00", 2), 0);
    EXPECT_EQ(RemoveOlder(limit, 2), 2);
    EXPECT_EQ(Find("2"), "none");
    EXPECT_EQ(Find("3"), "");
    EXPECT_EQ(RemoveOlder(limit, 2), 1);
    EXPECT_EQ(RemoveOlder(limit, 2), 0);
    EXPECT_EQ(Rows("answered_query"), 2);
}

}  // namespace

}  // namespace zelvek::testing
