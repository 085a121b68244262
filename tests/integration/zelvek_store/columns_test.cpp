// The columns of a job's fields: a new field brings its column to every database that there is.
#include <algorithm>

#include "engine.h"
#include "zelvek/store/jobs.h"

namespace zelvek::testing {

namespace {

using ::testing::IsEmpty;

class StoredColumns : public StoreTest {
protected:
    /// As a database of a version before the field has it.
    void TakeAway(const std::string& key) {
        Do([&](Transaction& transaction) {
            transaction.Prepare("ALTER TABLE job DROP COLUMN " + key).Run();
        });
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, StoredColumns, ::testing::ValuesIn(Engines()), EngineName);

// A text, a number that begins with 3, a flag; none of them has an index.
const std::vector<std::string> kFields{"res_name", "max_account_check_attempts", "skip_account_check"};

/// Gives the field what a new job has there.
void Renew(Job& job, const std::string& key) {
    const auto* const field = std::find_if(kJobFields.begin(), kJobFields.end(),
                                           [&](const JobField& one) { return one.key == key; });
    std::visit([&](auto member) { job.*member = Job{}.*member; }, field->member);
}

// Behaviours of: Store

// Behaviour: A database that lacks the column of a job's field gets it at the start; the jobs that are
//   there begin with what a new job has, and all else of them stays
TEST_P(StoredColumns, ThatAreMissingAreAdded) {
    for (const std::string& key : kFields) {
        Job job = FilledJob("before " + key);
        job.skip_account_check = true;
        job.force_update = true;
        job.id = AddJob(job);
        TakeAway(key);
        Reopen();
        EXPECT_THAT(Differences(FindJob(job.id), job), ::testing::ElementsAre(key));
        Renew(job, key);
        EXPECT_THAT(Differences(FindJob(job.id), job), IsEmpty()) << key;
    }
}

// Behaviour: A database that lacks the column ...
TEST_P(StoredColumns, ThatWereAddedTakeValues) {
    for (const std::string& key : kFields) TakeAway(key);
    Reopen();
    Job job = FilledJob("a");
    job.skip_account_check = true;
    job.id = AddJob(job);
    Reopen();
    EXPECT_THAT(Differences(FindJob(job.id), job), IsEmpty());
}

// Behaviour: A database with a column that no field has keeps it: somebody's older program may want it
TEST_P(StoredColumns, ThatNoFieldHasAreKept) {
    Do([](Transaction& transaction) {
        transaction.Prepare("ALTER TABLE job ADD COLUMN other TEXT NOT NULL DEFAULT 'x'").Run();
    });
    Reopen();
    const int id = AddJob(FilledJob("a"));
    Transaction transaction(store());
    std::string value;
    transaction.Prepare("SELECT other FROM job WHERE id = :id").With(id).Into(value).Next();
    EXPECT_EQ(value, "x");
}

}  // namespace

}  // namespace zelvek::testing
