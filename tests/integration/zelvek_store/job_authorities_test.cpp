// The authorities that jobs have: how many each, and which one new jobs get.
#include "zelvek/store/job_authorities.h"

#include "engine.h"
#include "zelvek/store/jobs.h"

namespace zelvek::testing {

namespace {

class StoredAuthorities : public StoreTest {
protected:
    int AddOf(const std::string& authority) {
        Job job;
        job.authority = authority;
        return AddJob(job);
    }

    std::map<std::string, long long> Counts() {
        Transaction transaction(store());
        return job_authorities::Counts(transaction);
    }

    std::string Default() {
        Transaction transaction(store());
        return job_authorities::Default(transaction);
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, StoredAuthorities, ::testing::ValuesIn(Engines()), EngineName);

using Counted = std::map<std::string, long long>;

// Behaviours of: Store

// Behaviour: How many jobs each authority has is counted as jobs are added, given to another one and
//   removed
TEST_P(StoredAuthorities, HaveTheirJobsCounted) {
    EXPECT_EQ(Counts(), (Counted{{"ambrin", 0}}));
    AddJob({});
    const int moved = AddOf("ambrin-a");
    const int removed = AddOf("ambrin-a");
    EXPECT_EQ(Counts(), (Counted{{"ambrin", 1}, {"ambrin-a", 2}}));
    Do([&](Transaction& transaction) {
        Job job = jobs::Find(transaction, moved);
        job.authority = "ambrin-b";
        jobs::Edit(transaction, job);
        jobs::Remove(transaction, removed);
    });
    EXPECT_EQ(Counts(), (Counted{{"ambrin", 1}, {"ambrin-a", 0}, {"ambrin-b", 1}}));
}

// Behaviour: New jobs get the first authority until somebody says otherwise, also after a restart
TEST_P(StoredAuthorities, OneIsTheDefault) {
    EXPECT_EQ(Default(), "ambrin");
    for (const std::string name : {"ambrin-a", "ambrin-b"})
        Do([&](Transaction& transaction) { job_authorities::SetDefault(transaction, name); });
    Reopen();
    EXPECT_EQ(Default(), "ambrin-b");
}

}  // namespace

}  // namespace zelvek::testing
