// Certificate requests and their keys, between making and taking.
#include "zelvek/store/requests.h"

#include "engine.h"

namespace zelvek::testing {

namespace {

class StoredRequests : public StoreTest {
protected:
    void Put(const std::string& name, const Process& maker, const std::string& request,
             const std::string& time = "2026-01-01 00:00:00") {
        Do([&](Transaction& transaction) {
            requests::Put(transaction, name, maker, {request, "key of " + request}, time);
        });
    }

    /// The request that is found, with its key; empty for none.
    std::string Find(const std::string& name, const Process& asker) {
        Transaction transaction(store());
        const auto found = requests::Find(transaction, name, asker);
        if (!found) return "";
        EXPECT_EQ(found->key, "key of " + found->request);
        return found->request;
    }

    void Remove(const std::string& name, const Process& asker) {
        Do([&](Transaction& transaction) { requests::Remove(transaction, name, asker); });
    }

    void RemoveLeft(const std::string& time) {
        Do([&](Transaction& transaction) { requests::RemoveLeft(transaction, time); });
    }

    const OtherProcess one_;
    const OtherProcess two_;
    const Process first_ = one_.process();
    const Process second_ = two_.process();
};

INSTANTIATE_TEST_SUITE_P(Engines, StoredRequests, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: A process that asks for a request by its name gets its own and nobody else's, alive or dead
TEST_P(StoredRequests, AreGivenToTheirMakers) {
    EXPECT_EQ(Find("shop.example", first_), "");
    Put("shop.example", first_, "first", "2026-01-01 00:00:00");
    Put("shop.example", second_, "second", "2026-01-02 00:00:00");
    Put("blog.example", first_, "other", "2026-01-03 00:00:00");
    Reopen();
    EXPECT_EQ(Find("shop.example", first_), "first");
    EXPECT_EQ(Find("shop.example", second_), "second");
    EXPECT_EQ(Find("shop.example", Living()), "");
    EXPECT_EQ(Find("blog.example", second_), "");
    EXPECT_EQ(Find("blog.example", first_), "other");
    EXPECT_EQ(Find("Shop.example", first_), "");
}

// Behaviour: A process's new request of the same name replaces the one before
TEST_P(StoredRequests, AreReplacedByTheirMakers) {
    Put("shop.example", first_, "before", "2026-01-02 00:00:00");
    Put("shop.example", second_, "other's", "2026-01-01 00:00:00");
    Put("shop.example", first_, "after", "2026-01-01 00:00:00");
    EXPECT_EQ(Find("shop.example", first_), "after");
    EXPECT_EQ(Find("shop.example", second_), "other's");
    EXPECT_EQ(Rows("csr"), 2);
}

// Behaviour: A process that has a dead one's id gets nothing mixed up: its request replaces the dead one's
TEST_P(StoredRequests, OfADeadProcessWithTheSameIdAreReplaced) {
    Put("shop.example", Dead(), "dead one's");
    EXPECT_EQ(Find("shop.example", Living()), "");
    Put("shop.example", Living(), "living one's");
    EXPECT_EQ(Find("shop.example", Living()), "living one's");
    EXPECT_EQ(Rows("csr"), 1);
}

// Behaviour: A process removes its own request of a name and those of the dead, no other living one's and
//   no other name
TEST_P(StoredRequests, AreRemovedByTheirMakers) {
    Put("shop.example", first_, "first");
    Put("shop.example", second_, "second");
    Put("blog.example", first_, "other name");
    Put("shop.example", Dead(), "dead one's");
    Remove("shop.example", first_);
    EXPECT_EQ(Find("shop.example", first_), "");
    EXPECT_EQ(Find("shop.example", second_), "second");
    EXPECT_EQ(Find("blog.example", first_), "other name");
    EXPECT_EQ(Rows("csr"), 2);
    Remove("nothing.example", first_);
    EXPECT_EQ(Rows("csr"), 2);
}

// Behaviour: Requests that dead processes made before a time are removed, others stay
TEST_P(StoredRequests, OfTheDeadAreRemovedWhenTheyAreOld) {
    Put("a.example", Dead(), "old", "2026-01-01 00:00:00");
    Put("b.example", Dead(), "new", "2026-01-03 00:00:00");
    Put("c.example", first_, "old of a living one", "2026-01-01 00:00:00");
    RemoveLeft("2026-01-02 00:00:00");
    EXPECT_EQ(Find("a.example", Dead()), "");
    EXPECT_EQ(Find("b.example", Dead()), "new");
    EXPECT_EQ(Find("c.example", first_), "old of a living one");
}

// Behaviour: Any text comes back from the store unchanged ...
TEST_P(StoredRequests, AnyTextComesBack) {
    for (const std::string& text : AwkwardTexts()) {
        const auto found = Do([&](Transaction& transaction) {
            requests::Put(transaction, text, first_, {text, text}, text);
            return requests::Find(transaction, text, first_);
        });
        ASSERT_TRUE(found);
        EXPECT_EQ(found->request, text);
        EXPECT_EQ(found->key, text);
        Remove(text, first_);
        EXPECT_EQ(Rows("csr"), 0);
    }
}

}  // namespace

}  // namespace zelvek::testing
