// Certificates that the web server has not taken over yet.
#include "zelvek/store/reloads.h"

#include "engine.h"

namespace zelvek::testing {

namespace {

using reloads::Reload;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class StoredReloads : public StoreTest {
protected:
    void Expect(const std::string& name, const std::string& since, const std::string& next) {
        Do([&](Transaction& transaction) {
            reloads::Expect(transaction, {"anna", name, "/certs/" + name, since, 0, next, ""});
        });
    }

    std::optional<Reload> Find(const std::string& name) {
        return Do([&](Transaction& transaction) { return reloads::Find(transaction, "anna", name); });
    }

    std::vector<std::string> Due(const std::string& now, const std::string& latest = "9", int limit = 10) {
        std::vector<std::string> names;
        Transaction transaction(store());
        for (const Reload& reload : reloads::Due(transaction, now, latest, limit))
            names.push_back(reload.certname);
        return names;
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, StoredReloads, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: A reload that waits is remembered with its first time, its failures and their reason, after a
//   restart too
TEST_P(StoredReloads, KeepTheirFirstTime) {
    Expect("a", "1", "2");
    Do([&](Transaction& transaction) {
        reloads::SetFailed(transaction, *reloads::Find(transaction, "anna", "a"), "4", "ill");
    });
    Expect("a", "3", "5");
    Reopen();
    const auto found = Find("a");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->user_name, "anna");
    EXPECT_EQ(found->directory, "/certs/a");
    EXPECT_EQ(found->since, "1");
    EXPECT_EQ(found->failures, 1);
    EXPECT_EQ(found->next, "5");
    EXPECT_EQ(found->reason, "ill");
}

// Behaviour: A reload that has succeeded is forgotten, and no other
TEST_P(StoredReloads, OfOneCertificateAreForgotten) {
    Expect("a", "1", "2");
    Expect("b", "1", "2");
    Do([](Transaction& transaction) {
        reloads::Finish(transaction, "anna", "a");
        reloads::Finish(transaction, "bob", "b");
    });
    EXPECT_FALSE(Find("a"));
    EXPECT_TRUE(Find("b"));
}

// Behaviour: Reloads are due at their times, the longest waiting first, and those with impossible times at
// once
TEST_P(StoredReloads, AreDueAtTheirTimes) {
    Expect("late", "1", "7");
    Expect("first", "1", "2");
    Expect("second", "1", "3");
    EXPECT_THAT(Due("1"), IsEmpty());
    EXPECT_THAT(Due("3"), ElementsAre("first", "second"));
    EXPECT_THAT(Due("3", "9", 1), ElementsAre("first"));
    EXPECT_THAT(Due("1", "5"), ElementsAre("late"));
}

}  // namespace

}  // namespace zelvek::testing
