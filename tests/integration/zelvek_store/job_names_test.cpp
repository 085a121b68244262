// Which jobs want a certificate for a name.
#include "zelvek/store/job_names.h"

#include "engine.h"
#include "zelvek/store/jobs.h"

namespace zelvek::testing {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class JobNames : public StoreTest {
protected:
    int Add(const std::string& names, const std::string& user = "anna") {
        Job job;
        job.aliases = names;
        job.user_name = user;
        return AddJob(job);
    }

    std::vector<int> JobsOf(const std::string& name, int after = 0, int limit = 100) {
        return Do(
            [&](Transaction& transaction) { return job_names::JobsOf(transaction, name, after, limit); });
    }

    /// "name job" of each, read in pages of one.
    std::vector<std::string> Below(const std::string& domain) {
        std::vector<std::string> found;
        job_names::Named last;
        for (;;) {
            const auto some = Do([&](Transaction& transaction) {
                return job_names::Below(transaction, domain, "anna", last, 1);
            });
            if (some.empty()) return found;
            last = some.back();
            found.push_back(last.name + " " + std::to_string(last.job));
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, JobNames, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: The jobs that have a name among theirs are found by it, whatever form each has it in
TEST_P(JobNames, AreFoundInTheirCanonicalForm) {
    const int first = Add("Shop.Example *.shop.example");
    const int second = Add("b\u00fccher.example shop.example shop.example.", "bob");
    Add("www.shop.example");
    EXPECT_THAT(JobsOf("shop.example"), ElementsAre(first, second));
    EXPECT_THAT(JobsOf("shop.example", first), ElementsAre(second));
    EXPECT_THAT(JobsOf("shop.example", 0, 1), ElementsAre(first));
    EXPECT_THAT(JobsOf("*.shop.example"), ElementsAre(first));
    EXPECT_THAT(JobsOf("xn--bcher-kva.example"), ElementsAre(second));
    EXPECT_THAT(JobsOf("example"), IsEmpty());
    Do([&](Transaction& transaction) { jobs::Remove(transaction, first); });
    EXPECT_THAT(JobsOf("shop.example"), ElementsAre(second));
    EXPECT_EQ(Rows("job_name"), 3);
}

// Behaviour: The names of a job are exchanged as a whole
TEST_P(JobNames, AreExchanged) {
    const int job = Add("a.example b.example");
    Do([&](Transaction& transaction) { job_names::Set(transaction, job, "b.example c.example"); });
    EXPECT_THAT(JobsOf("a.example"), IsEmpty());
    EXPECT_THAT(JobsOf("b.example"), ElementsAre(job));
    EXPECT_THAT(JobsOf("c.example"), ElementsAre(job));
}

// Behaviour: The names of a user's jobs in a domain are found, and no others
TEST_P(JobNames, BelowADomainAreFound) {
    Add("shop.example www.shop.example");
    Add("*.shop.example notshop.example shop.example.org");
    Add("shop.example", "bob");
    Add("shop-x.example shop.exampleb shop");
    EXPECT_THAT(Below("shop.example"),
                ElementsAre("shop.example 1", "*.shop.example 2", "www.shop.example 1"));
    EXPECT_THAT(Below("nothing.example"), IsEmpty());
}

// Behaviour: The names of an older version's jobs are found, too; one without an ASCII form costs nothing
TEST_P(JobNames, OfAnOlderVersionAreFilledInOnce) {
    constexpr int kMoreThanOneStep = 501;
    for (int i = 0; i < kMoreThanOneStep; ++i) Add("shop.example " + std::string(80, 'x') + "\u00fc.example");
    Do([](Transaction& transaction) {
        transaction.Prepare("DELETE FROM job_name").Run();
        job_names::FillIn(transaction);
    });
    EXPECT_THAT(JobsOf("shop.example"), IsEmpty());
    Do([](Transaction& transaction) {
        transaction.Prepare("INSERT INTO setting (name, value) VALUES ('names_missing', '')").Run();
    });
    Reopen();
    EXPECT_EQ(JobsOf("shop.example", 0, 1000).size(), static_cast<std::size_t>(kMoreThanOneStep));
    EXPECT_EQ(Rows("job_name"), kMoreThanOneStep);
    EXPECT_EQ(Rows("setting"), 0);
}

}  // namespace

}  // namespace zelvek::testing
