// What is published outside: who wants it, and what is to be removed.
#include "zelvek/store/publications.h"

#include <algorithm>
#include <optional>

#include "engine.h"

namespace zelvek::testing {

namespace {

using publications::Publication;
using publications::PublishedItem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const PublishedItem kAnswer{"", "token", ""};
const PublishedItem kRecord{"shop.example", "_acme-challenge.shop.example", "value"};

class StoredPublications : public StoreTest {
protected:
    static Publication Entry(const PublishedItem& item, int job, const Process& publisher = Living()) {
        return {0, item, "anna", job, publisher, false, false};
    }

    std::optional<Publication> Put(const Publication& entry) {
        return Do([&](Transaction& transaction) { return publications::Put(transaction, entry); });
    }

    void Restore(const Publication& entry) {
        Do([&](Transaction& transaction) { publications::Restore(transaction, entry); });
    }

    void Drop(const PublishedItem& item, int job) {
        Do([&](Transaction& transaction) { publications::Drop(transaction, item, job); });
    }

    void SetUnwanted(int job) {
        Do([&](Transaction& transaction) { publications::SetUnwanted(transaction, job); });
    }

    void SetKept(int job) {
        Do([&](Transaction& transaction) { publications::Keep(transaction, job, Living()); });
    }

    std::vector<Publication> Of(const PublishedItem& item) {
        Transaction transaction(store());
        return publications::Of(transaction, item);
    }

    /// The item's only entry.
    Publication Only(const PublishedItem& item) {
        const auto entries = Of(item);
        EXPECT_EQ(entries.size(), 1u);
        return entries.at(0);
    }

    /// The jobs of the entries that are to be removed.
    std::vector<int> Unwanted(std::optional<int> job = std::nullopt) {
        std::vector<int> jobs;
        for (const auto& entry :
             Do([&](Transaction& transaction) { return publications::TakeUnwanted(transaction, job); })) {
            EXPECT_TRUE(entry.unwanted);
            jobs.push_back(entry.job);
        }
        return jobs;
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, StoredPublications, ::testing::ValuesIn(Engines()), EngineName);

/// Entries without the numbers that the store gives them, in the order of their jobs.
std::vector<std::string> Texts(std::vector<Publication> entries) {
    std::sort(entries.begin(), entries.end(),
              [](const Publication& a, const Publication& b) { return a.job < b.job; });
    std::vector<std::string> texts;
    for (const auto& entry : entries) {
        texts.push_back(std::to_string(entry.job) + " " + entry.user_name + " " + entry.item.zone + "|" +
                        entry.item.name + "|" + entry.item.value + (entry.kept ? " kept" : "") +
                        (entry.unwanted ? " unwanted" : "") +
                        (entry.publisher == Living() ? "" : " of another process"));
    }
    return texts;
}

// Behaviours of: Store

// Behaviour: An item that two jobs publish stands there once for each, after a restart too
TEST_P(StoredPublications, StandOnceForEachJob) {
    EXPECT_FALSE(Put(Entry(kAnswer, 1)));
    EXPECT_FALSE(Put(Entry(kAnswer, 2)));
    EXPECT_FALSE(Put(Entry(kRecord, 1, Dead())));
    Reopen();
    EXPECT_THAT(Texts(Of(kAnswer)), ElementsAre("1 anna |token|", "2 anna |token|"));
    EXPECT_THAT(Texts(Of(kRecord)),
                ElementsAre("1 anna shop.example|_acme-challenge.shop.example|value of another process"));
    EXPECT_THAT(Of({"", "token", "value"}), IsEmpty());
    EXPECT_THAT(Of({"other.example", kRecord.name, kRecord.value}), IsEmpty());
}

// Behaviour: What a job publishes again tells what stood there before, and is its newest publisher's
TEST_P(StoredPublications, AgainTellWhatStoodThereBefore) {
    Put(Entry(kAnswer, 1, Dead()));
    Publication again = Entry(kAnswer, 1);
    again.user_name = "bert";
    const auto before = Put(again);
    ASSERT_TRUE(before);
    EXPECT_EQ(before->publisher, Dead());
    EXPECT_EQ(before->user_name, "anna");
    EXPECT_THAT(Texts(Of(kAnswer)), ElementsAre("1 bert |token|"));
}

// Behaviour: What was kept stays kept when the job publishes it again; what was to be removed is wanted
//   again, and not kept
TEST_P(StoredPublications, AgainStayKept) {
    Put(Entry(kAnswer, 1));
    SetKept(1);
    Put(Entry(kAnswer, 1));
    EXPECT_TRUE(Only(kAnswer).kept);

    SetUnwanted(1);
    Put(Entry(kAnswer, 1));
    EXPECT_FALSE(Only(kAnswer).unwanted);
    EXPECT_FALSE(Only(kAnswer).kept);
}

// Behaviour: What a process withdraws is to be removed once that process writes the job back, and no other
// does
TEST_P(StoredPublications, AreWithdrawnByTheWriteBackOfTheirWithdrawer) {
    const auto withdraw = [&](const PublishedItem& item, int job, const Process& process) {
        return Do([&](Transaction& transaction) {
            return publications::Withdraw(transaction, item, job, process);
        });
    };
    const auto keep = [&](int job, const Process& process) {
        return Do([&](Transaction& transaction) { return publications::Keep(transaction, job, process); });
    };
    EXPECT_EQ(keep(1, Living()), 0) << "there is nothing";
    Put(Entry(kAnswer, 1));
    Put(Entry(kRecord, 1));
    EXPECT_TRUE(withdraw(kAnswer, 1, Dead()));
    EXPECT_FALSE(withdraw(kAnswer, 2, Dead())) << "the other job has none";
    EXPECT_EQ(keep(1, Living()), 2);
    EXPECT_THAT(Unwanted(), IsEmpty()) << "who has withdrawn it did not write back";
    EXPECT_EQ(keep(1, Dead()), 1);
    EXPECT_THAT(Unwanted(), ElementsAre(1));
    EXPECT_TRUE(Only(kAnswer).unwanted);
    EXPECT_TRUE(Only(kRecord).kept);
}

// Behaviour: What somebody else had made before is known as such until a run withdraws it
TEST_P(StoredPublications, FoundOnesAreKnownUntilWithdrawn) {
    Put(Entry(kRecord, 1));
    Do([&](Transaction& transaction) { publications::SetFound(transaction, kRecord); });
    Reopen();
    EXPECT_TRUE(Only(kRecord).found);
    Do([&](Transaction& transaction) { publications::Withdraw(transaction, kRecord, 1, Living()); });
    EXPECT_FALSE(Only(kRecord).found);
}

// Behaviour: What could not be published yet is found until it is there or unwanted
TEST_P(StoredPublications, AreMissingUntilTheyAreThere) {
    const auto set = [&](bool missing) {
        Do([&](Transaction& transaction) { publications::SetMissing(transaction, kRecord, missing); });
    };
    const auto missing = [&](long long after = 0) {
        Transaction transaction(store());
        return publications::Missing(transaction, after, 10).size();
    };
    Put(Entry(kRecord, 1));
    EXPECT_EQ(missing(), 0u);
    set(true);
    EXPECT_EQ(missing(), 1u);
    EXPECT_EQ(missing(Only(kRecord).id), 0u);
    SetUnwanted(1);
    EXPECT_EQ(missing(), 0u);
    Put(Entry(kRecord, 1));
    set(true);
    set(false);
    EXPECT_EQ(missing(), 0u);
}

// Behaviour: An entry is restored just as it was before, with all its marks
TEST_P(StoredPublications, AreRestored) {
    for (const bool kept : {false, true}) {
        for (const bool unwanted : {false, true}) {
            Restore({0, kAnswer, "bert", 1, Dead(), kept, unwanted});
            const Publication before = Only(kAnswer);
            EXPECT_EQ(before.kept, kept);
            EXPECT_EQ(before.unwanted, unwanted);
            EXPECT_EQ(before.publisher, Dead());
            Put(Entry(kAnswer, 1));
            Restore(before);
            EXPECT_THAT(Texts(Of(kAnswer)), Texts({before}));
        }
    }
}

// Behaviour: A dropped entry is one job's alone
TEST_P(StoredPublications, AreDroppedForOneJob) {
    for (const int job : {1, 2}) {
        Put(Entry(kAnswer, job));
        Put(Entry(kRecord, job));
    }
    Drop(kAnswer, 1);
    Drop(kAnswer, 7);
    EXPECT_THAT(Texts(Of(kAnswer)), ElementsAre("2 anna |token|"));
    EXPECT_EQ(Of(kRecord).size(), 2u);
}

// Behaviour: A user's records are found by name and value in whatever zones; answers and other users'
//   records are not
TEST_P(StoredPublications, RecordsAreFoundInAnyZone) {
    Put(Entry(kRecord, 1));
    Put(Entry({"example", kRecord.name, kRecord.value}, 2));
    Put(Entry({kRecord.zone, kRecord.name, "other"}, 3));
    Put(Entry({kRecord.zone, "other", kRecord.value}, 4));
    Put(Entry({"", kRecord.name, kRecord.value}, 5));
    Publication foreign = Entry(kRecord, 6);
    foreign.user_name = "bert";
    Put(foreign);
    Transaction transaction(store());
    std::vector<int> jobs;
    for (const auto& entry : publications::RecordsOf(transaction, "anna", kRecord.name, kRecord.value)) {
        jobs.push_back(entry.job);
    }
    std::sort(jobs.begin(), jobs.end());
    EXPECT_THAT(jobs, ElementsAre(1, 2));
    EXPECT_THAT(publications::RecordsOf(transaction, "anna", "nothing", kRecord.value), IsEmpty());
}

// Behaviour: All that a job has published becomes unwanted at once, or kept; other jobs' stays as it is
TEST_P(StoredPublications, AreMarkedForOneJob) {
    for (const int job : {1, 2, 3}) {
        Put(Entry(kAnswer, job));
        Put(Entry(kRecord, job));
    }
    SetUnwanted(1);
    SetKept(2);
    EXPECT_THAT(Texts(Of(kAnswer)),
                ElementsAre("1 anna |token| unwanted", "2 anna |token| kept", "3 anna |token|"));
    EXPECT_TRUE(Of(kRecord)[0].unwanted);
    EXPECT_TRUE(Of(kRecord)[1].kept);
}

// Behaviour: What is to be removed stays so when what else the job has published is kept
TEST_P(StoredPublications, ToBeRemovedStaySoAtTheNextWriteBack) {
    Put(Entry(kAnswer, 1));
    SetUnwanted(1);
    Put(Entry(kRecord, 1));
    SetKept(1);
    EXPECT_TRUE(Only(kAnswer).unwanted);
    EXPECT_FALSE(Only(kRecord).unwanted);
    EXPECT_TRUE(Only(kRecord).kept);
}

// Behaviour: To be removed is what is unwanted and what dead processes published; what living ones
//   published is not, nor what a write-back kept
TEST_P(StoredPublications, ToBeRemovedAreTheUnwantedAndTheDeads) {
    Put(Entry(kAnswer, 1));
    Put(Entry(kAnswer, 2, Dead()));
    Put(Entry(kAnswer, 3, Dead()));
    SetKept(3);
    Put(Entry(kAnswer, 4));
    SetUnwanted(4);
    Put(Entry(kAnswer, 5, Dead()));
    SetKept(5);
    SetUnwanted(5);
    Put(Entry(kAnswer, 0, Dead()));
    EXPECT_THAT(Unwanted(), ElementsAre(2, 4, 5, 0));
    EXPECT_THAT(Unwanted(), ElementsAre(2, 4, 5, 0));
    EXPECT_THAT(Texts(Of(kAnswer))[1], "1 anna |token|");
}

// Behaviour: What is to be removed of one job is told for that job alone, and nothing else is marked
TEST_P(StoredPublications, ToBeRemovedAreToldForOneJob) {
    Put(Entry(kAnswer, 1, Dead()));
    Put(Entry(kAnswer, 2, Dead()));
    Put(Entry(kRecord, 2));
    Put(Entry(kAnswer, 3));
    SetUnwanted(3);
    EXPECT_THAT(Unwanted(3), ElementsAre(3));
    EXPECT_THAT(Unwanted(2), ElementsAre(2));
    EXPECT_THAT(Unwanted(7), IsEmpty());
    EXPECT_FALSE(Of(kAnswer)[0].unwanted);
    EXPECT_THAT(Unwanted(), ElementsAre(1, 2, 3));
}

// Behaviour: Any text comes back from the store unchanged ...
TEST_P(StoredPublications, AnyTextComesBack) {
    for (const std::string& text : AwkwardTexts()) {
        const PublishedItem item{text, text, text};
        Publication entry = Entry(item, 1);
        entry.user_name = text;
        Put(entry);
        EXPECT_EQ(Only(item).item, item);
        EXPECT_EQ(Only(item).user_name, text);
        Transaction transaction(store());
        EXPECT_EQ(publications::RecordsOf(transaction, text, text, text).size(), text.empty() ? 0u : 1u);
    }
}

}  // namespace

}  // namespace zelvek::testing
