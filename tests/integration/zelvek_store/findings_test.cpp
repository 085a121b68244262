// What examinations of failed checks have found.
#include "zelvek/store/findings.h"

#include "engine.h"
#include "zelvek/store/jobs.h"

namespace zelvek::testing {

namespace {

using findings::Finding;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class StoredFindings : public StoreTest {
protected:
    StoredFindings() : first_(AddJob()), second_(AddJob()) {}

    void Ask(int job, const std::string& time) {
        Do([&](Transaction& transaction) { findings::Ask(transaction, job, time); });
    }

    std::vector<int> Take(int limit = 10) {
        return Do([&](Transaction& transaction) { return findings::TakeAsked(transaction, limit); });
    }

    void Put(int job, const std::vector<std::string>& names) {
        std::vector<Finding> found;
        for (const std::string& name : names) found.push_back({name, "p", "s", "d", "t"});
        Do([&](Transaction& transaction) { findings::Put(transaction, job, found); });
    }

    std::vector<std::string> Names(int job) {
        std::vector<std::string> names;
        Transaction transaction(store());
        for (const Finding& finding : findings::Of(transaction, job)) names.push_back(finding.name);
        return names;
    }

    int first_, second_;
};

INSTANTIATE_TEST_SUITE_P(Engines, StoredFindings, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: A job that is to be examined is given once, the longest waiting first, after a restart too
TEST_P(StoredFindings, AJobToBeExaminedIsGivenOnce) {
    Ask(first_, "2");
    Ask(second_, "1");
    Ask(second_, "3");
    Reopen();
    EXPECT_THAT(Take(1), ElementsAre(first_));
    EXPECT_THAT(Take(), ElementsAre(second_));
    EXPECT_THAT(Take(), IsEmpty());
}

// Behaviour: What an examination has found takes the place of what the one before has found, as it stands and
//   in its order
TEST_P(StoredFindings, AreThoseOfTheNewestExamination) {
    Put(first_, {"old", "older"});
    std::vector<Finding> found;
    for (const std::string& text : AwkwardTexts()) found.push_back({text, text, text, text, text});
    Do([&](Transaction& transaction) { findings::Put(transaction, first_, found); });
    const auto kept = Do([&](Transaction& transaction) { return findings::Of(transaction, first_); });
    ASSERT_EQ(kept.size(), found.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        for (auto member :
             {&Finding::name, &Finding::place, &Finding::state, &Finding::detail, &Finding::time})
            EXPECT_EQ(kept[i].*member, found[i].*member);
    }
}

// Behaviour: What examinations have found goes with the job, with its success, and when the next one is asked
//   for
TEST_P(StoredFindings, GoWithTheJobAndWithTheNextExamination) {
    Put(first_, {"a"});
    Put(second_, {"b"});
    Ask(first_, "1");
    EXPECT_THAT(Names(first_), IsEmpty());
    EXPECT_THAT(Names(second_), ElementsAre("b"));
    Ask(second_, "1");
    Put(second_, {"b"});
    Do([&](Transaction& transaction) { findings::Forget(transaction, second_); });
    EXPECT_THAT(Names(second_), IsEmpty());
    Put(first_, {"a"});
    Do([&](Transaction& transaction) { jobs::Remove(transaction, first_); });
    EXPECT_EQ(Rows("finding"), 0);
    EXPECT_EQ(Rows("examination"), 0);
}

}  // namespace

}  // namespace zelvek::testing
