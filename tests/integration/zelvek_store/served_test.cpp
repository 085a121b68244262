// What web servers show of installed certificates.
#include "zelvek/store/served.h"

#include "engine.h"

namespace zelvek::testing {

namespace {

using served::Check;
using served::Served;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class StoredSites : public StoreTest {
protected:
    void Expect(const std::string& folder, const std::string& since, const std::string& next) {
        Do([&](Transaction& transaction) {
            served::Expect(transaction, {"anna", folder, folder, "/certs/" + folder, since, next});
        });
    }

    void Set(const std::string& folder, const Served& seen) {
        Do([&](Transaction& transaction) { served::Set(transaction, "anna", folder, seen); });
    }

    std::optional<Served> Find(const std::string& folder) {
        return Do([&](Transaction& transaction) { return served::Find(transaction, "anna", folder); });
    }

    std::vector<Check> Due(const std::string& now, const std::string& latest = "9", int limit = 10) {
        return Do([&](Transaction& transaction) { return served::Due(transaction, now, latest, limit); });
    }

    std::vector<std::string> Folders(const std::string& now, const std::string& latest = "9",
                                     int limit = 10) {
        std::vector<std::string> folders;
        for (const Check& check : Due(now, latest, limit)) folders.push_back(check.folder);
        return folders;
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, StoredSites, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: What a web server shows of a certificate is kept, the newest of it, and forgotten when another
//   certificate is installed
TEST_P(StoredSites, AreKnownAsTheyWereSeenLast) {
    EXPECT_FALSE(Find("a"));
    Set("a", {"older", "1", "x"});
    for (const std::string& text : AwkwardTexts()) Set("a", {"older", text, text});
    Set("b", {"served", "2", ""});
    Reopen();
    const auto found = Find("a");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->state, "older");
    EXPECT_EQ(found->time, AwkwardTexts().back());
    EXPECT_EQ(found->detail, AwkwardTexts().back());
    Expect("a", "3", "4");
    EXPECT_FALSE(Find("a"));
    EXPECT_TRUE(Find("b"));
}

// Behaviour: Certificates that a web server is to show are looked for at their times, the longest waiting
//   first, and those with impossible times at once
TEST_P(StoredSites, AreLookedForAtTheirTimes) {
    Expect("late", "1", "7");
    Expect("first", "1", "2");
    Expect("second", "1", "3");
    EXPECT_THAT(Folders("1"), IsEmpty());
    EXPECT_THAT(Folders("3"), ElementsAre("first", "second"));
    EXPECT_THAT(Folders("3", "9", 1), ElementsAre("first"));
    EXPECT_THAT(Folders("1", "5"), ElementsAre("late"));

    const Check first = Due("2").front();
    EXPECT_EQ(first.user_name + first.certname + first.directory + first.since, "annafirst/certs/first1");
    EXPECT_EQ(first.looks, 0);
    Do([&](Transaction& transaction) { served::Postpone(transaction, first, "4"); });
    EXPECT_THAT(Folders("2"), IsEmpty());
    EXPECT_THAT(Folders("4"), ElementsAre("second", "first"));
    EXPECT_EQ(Due("4").back().looks, 1);
}

// Behaviour: A certificate is looked for until that is over, or another one is installed in its place
TEST_P(StoredSites, AreLookedForUntilThatIsOver) {
    Expect("a", "1", "2");
    Expect("b", "1", "2");
    const Check check = Due("2").front();
    const auto expected = [&] {
        return Do([&](Transaction& transaction) { return served::IsExpected(transaction, check); });
    };
    EXPECT_TRUE(expected());
    Expect(check.folder, "2", "3");
    EXPECT_FALSE(expected());
    Do([&](Transaction& transaction) { served::Finish(transaction, "anna", "a"); });
    EXPECT_THAT(Folders("3"), ElementsAre("b"));
    Set("b", {"older", "1", "x"});
    Do([&](Transaction& transaction) { served::Forget(transaction, "anna", "b"); });
    EXPECT_THAT(Folders("3"), IsEmpty());
    EXPECT_FALSE(Find("b"));
}

}  // namespace

}  // namespace zelvek::testing
