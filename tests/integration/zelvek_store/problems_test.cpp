// Notifications for people.
#include "zelvek/store/problems.h"

#include "engine.h"
#include "zelvek/base/error.h"

namespace zelvek::testing {

namespace {

using problems::Problem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

class StoredProblems : public StoreTest {
protected:
    void Add(const Problem& problem) {
        Do([&](Transaction& transaction) { problems::Add(transaction, problem); });
    }

    void AddOf(const std::string& id, const std::string& time) {
        Add({id, "n", "error", "root", time, {{"a", "1"}, {"b", "2"}}});
    }

    std::vector<Problem> List(long long after = 0, int limit = 100) {
        Transaction transaction(store());
        return problems::List(transaction, after, limit);
    }

    std::vector<std::string> Ids(long long after = 0, int limit = 100) {
        std::vector<std::string> ids;
        for (const Problem& problem : List(after, limit)) ids.push_back(problem.id);
        return ids;
    }

    long long RemoveOlder(const std::string& time, long long most, int limit) {
        return Do(
            [&](Transaction& transaction) { return problems::RemoveOlder(transaction, time, most, limit); });
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, StoredProblems, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: Notifications come in the order in which they came, with their parameters by name, after a
//   restart too
TEST_P(StoredProblems, ComeInTheirOrderWithTheirParameters) {
    Add({"7", "ambrin_pause", "warning", "anna", "2026-01-02 00:00:00", {{"ns", "ns1"}, {"domain", "shop"}}});
    Add({"3", "ambrin_success", "info", "root", "2026-01-01 00:00:00", {}});
    Reopen();
    const auto all = List();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].id, "7");
    EXPECT_EQ(all[0].name, "ambrin_pause");
    EXPECT_EQ(all[0].level, "warning");
    EXPECT_EQ(all[0].owner, "anna");
    EXPECT_EQ(all[0].time, "2026-01-02 00:00:00");
    EXPECT_THAT(all[0].parameters, ElementsAre(Pair("domain", "shop"), Pair("ns", "ns1")));
    EXPECT_EQ(all[1].id, "3");
    EXPECT_THAT(all[1].parameters, IsEmpty());
    EXPECT_LT(all[0].number, all[1].number);
}

// Behaviour: Notifications are listed after the number asked for, as many as asked for
TEST_P(StoredProblems, AreListedInPages) {
    for (const std::string id : {"a", "b", "c", "d"}) AddOf(id, "t");
    const auto all = List();
    EXPECT_THAT(Ids(all[0].number, 2), ElementsAre("b", "c"));
    EXPECT_THAT(Ids(all[2].number), ElementsAre("d"));
    EXPECT_THAT(Ids(all[3].number), IsEmpty());
}

// Behaviour: A notification that comes again changes nothing
TEST_P(StoredProblems, AgainChangeNothing) {
    AddOf("7", "t");
    Add({"7", "other", "info", "anna", "u", {{"a", "changed"}, {"c", "3"}}});
    const auto all = List();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].name, "n");
    EXPECT_EQ(all[0].time, "t");
    EXPECT_THAT(all[0].parameters, ElementsAre(Pair("a", "1"), Pair("b", "2")));
    AddOf("8", "t");
    EXPECT_THAT(Ids(), ElementsAre("7", "8"));
}

// Behaviour: A notification that is not true any more is removed, with its parameters
TEST_P(StoredProblems, AreRemovedByTheirIds) {
    AddOf("7", "t");
    AddOf("8", "t");
    for (int twice = 0; twice < 2; ++twice) {
        Do([](Transaction& transaction) { problems::Remove(transaction, "7"); });
        EXPECT_THAT(Ids(), ElementsAre("8"));
        EXPECT_EQ(Rows("problem_parameter"), 2);
    }
}

// Behaviour: Any text comes back from the store unchanged ...
TEST_P(StoredProblems, AnyTextComesBack) {
    for (const std::string& text : AwkwardTexts()) {
        Add({text, text, text, text, text, {{text, text}}});
        const Problem kept = List().back();
        for (const auto& part : {kept.id, kept.name, kept.level, kept.owner, kept.time})
            EXPECT_EQ(part, text);
        EXPECT_THAT(kept.parameters, ElementsAre(Pair(text, text)));
    }
}

// Behaviour: Old notifications are forgotten a few at a time, with their parameters; newer ones stay
TEST_P(StoredProblems, OfOldAreForgottenInSteps) {
    EXPECT_EQ(RemoveOlder("2026-01-01 00:00:00", 100, 10), 0);
    for (int day = 1; day <= 6; ++day)
        AddOf(std::to_string(day), "2026-01-0" + std::to_string(day) + " 00:00:00");
    const std::string limit = "2026-01-05 00:00:00";
    EXPECT_EQ(RemoveOlder(limit, 100, 3), 3);
    EXPECT_THAT(Ids(), ElementsAre("4", "5", "6"));
    EXPECT_EQ(RemoveOlder(limit, 100, 3), 1);
    EXPECT_EQ(RemoveOlder(limit, 100, 3), 0);
    EXPECT_THAT(Ids(), ElementsAre("5", "6"));
    EXPECT_EQ(Rows("problem_parameter"), 4);
}

// Behaviour: Old notifications are forgotten though one of a wrong clock, far ahead, stands before them
TEST_P(StoredProblems, OfOldAreForgottenBehindATimeFarAhead) {
    for (const std::string id : {"a", "b", "c"}) AddOf(id, "2999-01-01 00:00:00");
    AddOf("old", "2026-01-01 00:00:00");
    EXPECT_EQ(RemoveOlder("2026-02-01 00:00:00", 100, 2), 1);
    EXPECT_THAT(Ids(), ElementsAre("a", "b", "c"));
}

// Behaviour: No more are forgotten at once than asked for, be they old or too many
TEST_P(StoredProblems, AreForgottenAtMostAsManyAsAskedFor) {
    AddOf("old", "2025-01-01 00:00:00");
    for (const std::string id : {"a", "b", "c", "d"}) AddOf(id, "2026-02-01 00:00:00");
    EXPECT_EQ(RemoveOlder("2026-01-01 00:00:00", 1, 2), 2);
    EXPECT_THAT(Ids(), ElementsAre("b", "c", "d"));
    EXPECT_EQ(RemoveOlder("2026-01-01 00:00:00", 1, 2), 2);
    EXPECT_THAT(Ids(), ElementsAre("d"));
}

// Behaviour: Of too many notifications the oldest are forgotten, a few at a time, however new they are
TEST_P(StoredProblems, OfTooManyTheOldestAreForgotten) {
    for (const std::string id : {"a", "b", "c", "d", "e"}) AddOf(id, "2026-01-01 00:00:00");
    EXPECT_EQ(RemoveOlder("2026-01-01 00:00:00", 2, 2), 2);
    EXPECT_THAT(Ids(), ElementsAre("c", "d", "e"));
    EXPECT_EQ(RemoveOlder("2026-01-01 00:00:00", 2, 2), 1);
    EXPECT_EQ(RemoveOlder("2026-01-01 00:00:00", 2, 2), 0);
    EXPECT_THAT(Ids(), ElementsAre("d", "e"));
    EXPECT_EQ(Rows("problem_parameter"), 4);
}

}  // namespace

}  // namespace zelvek::testing
