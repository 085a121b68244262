// Accounts with their keys: one entry each, however many jobs use them.
#include "zelvek/store/accounts.h"

#include "engine.h"
#include "zelvek/store/jobs.h"

namespace zelvek::testing {

namespace {

using accounts::Account;

const Account kOne{"https://ca.example/acct/1", "KEY ONE", "{\"n\":\"one\"}"};
const Account kTwo{"https://ca.example/acct/2", "KEY TWO", "{\"n\":\"two\"}"};

class StoredAccounts : public StoreTest {
protected:
    int AddWith(const Account& account) {
        const int id = AddJob();
        Set(id, account);
        return id;
    }

    void Set(int job, const Account& account) {
        Do([&](Transaction& transaction) { accounts::SetOfJob(transaction, job, account); });
    }

    void MakeDefault(int job) {
        Do([&](Transaction& transaction) { accounts::MakeDefault(transaction, job); });
    }

    void Remove(int job) {
        Do([&](Transaction& transaction) { jobs::Remove(transaction, job); });
    }

    Account Of(int job) {
        const Job found = FindJob(job);
        return {found.kid, found.acmekey, found.modulus};
    }

    Account Default(const std::string& authority = "ambrin") {
        Transaction transaction(store());
        return accounts::Default(transaction, authority);
    }

    int AddOf(const std::string& authority, const Account& account) {
        Job job;
        job.authority = authority;
        const int id = AddJob(job);
        Set(id, account);
        return id;
    }

    long long Kept() { return Rows("account"); }
};

INSTANTIATE_TEST_SUITE_P(Engines, StoredAccounts, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: An account is kept once, however many jobs use it
TEST_P(StoredAccounts, AreKeptOnceForManyJobs) {
    const int first = AddWith(kOne);
    const int second = AddWith(kOne);
    const int third = AddWith(kTwo);
    EXPECT_EQ(Of(first), kOne);
    EXPECT_EQ(Of(second), kOne);
    EXPECT_EQ(Of(third), kTwo);
    EXPECT_EQ(Kept(), 2);
}

// Behaviour: Accounts that differ in one text are different accounts
TEST_P(StoredAccounts, ThatDifferInOneTextAreDifferent) {
    const std::vector<Account> different{kOne,
                                         {kTwo.kid, kOne.acmekey, kOne.modulus},
                                         {kOne.kid, kTwo.acmekey, kOne.modulus},
                                         {kOne.kid, kOne.acmekey, kTwo.modulus},
                                         {"", kOne.acmekey, ""},
                                         {kOne.kid, "", ""},
                                         {"", "", kOne.modulus}};
    std::vector<int> ids;
    for (const Account& account : different) ids.push_back(AddWith(account));
    for (std::size_t i = 0; i < ids.size(); ++i) EXPECT_EQ(Of(ids[i]), different[i]) << i;
    EXPECT_EQ(Kept(), static_cast<long long>(different.size()));
}

// Behaviour: A job's new account is the job's alone: other jobs keep theirs
TEST_P(StoredAccounts, AreChangedForOneJobAlone) {
    const int first = AddWith(kOne);
    const int second = AddWith(kOne);
    Set(first, kTwo);
    EXPECT_EQ(Of(first), kTwo);
    EXPECT_EQ(Of(second), kOne);
}

// Behaviour: An account that no job uses any more is removed: after the last job's removal, and after its
//   change to another account or to none
TEST_P(StoredAccounts, AreRemovedWithTheirLastUser) {
    const int first = AddWith(kOne);
    const int second = AddWith(kOne);
    const int third = AddWith(kOne);
    Remove(first);
    Set(second, kTwo);
    EXPECT_EQ(Kept(), 2);
    Set(third, kTwo);
    EXPECT_EQ(Kept(), 1);
    Set(third, {});
    EXPECT_EQ(Kept(), 1);
    Remove(second);
    EXPECT_EQ(Kept(), 0);
}

// Behaviour: An account without any text is none
TEST_P(StoredAccounts, WithoutTextsAreNone) {
    const int id = AddWith({});
    EXPECT_EQ(Of(id), Account{});
    EXPECT_EQ(Kept(), 0);
    MakeDefault(id);
    EXPECT_EQ(Default(), Account{});
}

// Behaviour: There is no panel-wide account before one was made so
TEST_P(StoredAccounts, NoneIsTheDefaultAtFirst) {
    AddWith(kOne);
    EXPECT_EQ(Default(), Account{});
}

// Behaviour: The panel-wide account is kept when no job uses it, after a restart too
TEST_P(StoredAccounts, TheDefaultIsKeptWithoutAJob) {
    const int id = AddWith(kOne);
    MakeDefault(id);
    Set(id, kTwo);
    Remove(id);
    Reopen();
    EXPECT_EQ(Default(), kOne);
    EXPECT_EQ(Kept(), 1);
}

// Behaviour: A new panel-wide account replaces the one before, which is removed unless a job uses it
TEST_P(StoredAccounts, ANewDefaultReplacesTheOneBefore) {
    const int first = AddWith(kOne);
    const int second = AddWith(kTwo);
    MakeDefault(first);
    MakeDefault(second);
    EXPECT_EQ(Default(), kTwo);
    EXPECT_EQ(Of(first), kOne);

    MakeDefault(second);
    EXPECT_EQ(Default(), kTwo);

    Remove(second);
    EXPECT_EQ(Kept(), 2);
    MakeDefault(first);
    EXPECT_EQ(Default(), kOne);
    EXPECT_EQ(Kept(), 1);
}

// Behaviour: A job that takes the panel-wide account shares its entry
TEST_P(StoredAccounts, TheDefaultIsSharedByTheJobsThatTakeIt) {
    MakeDefault(AddWith(kOne));
    const int id = AddWith(Default());
    EXPECT_EQ(Of(id), kOne);
    EXPECT_EQ(Kept(), 1);
}

// Behaviour: Each authority has a panel-wide account and entries of its own, though texts are the same
TEST_P(StoredAccounts, BelongToAnAuthority) {
    const int first = AddWith(kOne);
    const int other = AddOf("ambrin-other", kOne);
    EXPECT_EQ(Kept(), 2);
    MakeDefault(other);
    EXPECT_EQ(Default(), Account{});
    EXPECT_EQ(Default("ambrin-other"), kOne);
    MakeDefault(first);
    Remove(first);
    Remove(other);
    Reopen();
    EXPECT_EQ(Default(), kOne);
    EXPECT_EQ(Default("ambrin-other"), kOne);
    EXPECT_EQ(Default("ambrin-third"), Account{});
    MakeDefault(AddOf("ambrin-other", kTwo));
    EXPECT_EQ(Default(), kOne);
    EXPECT_EQ(Kept(), 2) << "the other authority's one before is gone";
}

// Behaviour: A job that is given to another authority has no account there, and one that nobody else uses
//   is removed
TEST_P(StoredAccounts, AreNotTakenToAnotherAuthority) {
    const int id = AddWith(kOne);
    Do([&](Transaction& transaction) {
        Job job = jobs::Find(transaction, id);
        job.res_name = "somebody";
        jobs::Edit(transaction, job);
    });
    EXPECT_EQ(Of(id), kOne);
    Do([&](Transaction& transaction) {
        Job job = jobs::Find(transaction, id);
        job.authority = "ambrin-other";
        jobs::Edit(transaction, job);
    });
    EXPECT_EQ(Of(id), Account{});
    EXPECT_EQ(Kept(), 0);
}

// Behaviour: Any text comes back from the store unchanged ...
TEST_P(StoredAccounts, AnyTextComesBack) {
    for (const std::string& text : AwkwardTexts()) {
        const Account account{text, text, text};
        const int id = AddWith(account);
        const int again = AddWith(account);
        MakeDefault(id);
        EXPECT_EQ(Of(id), account);
        EXPECT_EQ(Of(again), account);
        EXPECT_EQ(Default(), account);
    }
}

}  // namespace

}  // namespace zelvek::testing
