// Certificate jobs in the store.
#include "zelvek/store/jobs.h"
#include "zelvek/store/restarts.h"
#include "zelvek/store/runs.h"

#include <limits>

#include "engine.h"
#include "zelvek/base/error.h"
#include "zelvek/store/history.h"

namespace zelvek::testing {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class StoredJobs : public StoreTest {
protected:
    std::vector<int> List(const jobs::Selection& selection) {
        std::vector<int> ids;
        Transaction transaction(store());
        for (const Job& job : jobs::List(transaction, selection)) ids.push_back(job.id);
        return ids;
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, StoredJobs, ::testing::ValuesIn(Engines()), EngineName);

bool IsShown(const JobField& field) {
    return (field.shown & JobField::kInLists) != 0 || field.writer == JobField::Writer::kService;
}

/// The keys of the fields that what lists show of `job` should not have, or not so.
std::vector<std::string> WronglyShown(const Job& shown, const Job& job) {
    std::vector<std::string> keys;
    for (const JobField& field : kJobFields) {
        const Job& expected = IsShown(field) ? job : Job{};
        const bool right =
            std::visit([&](auto member) { return shown.*member == expected.*member; }, field.member);
        if (!right) keys.emplace_back(field.key);
    }
    return keys;
}

jobs::State StateOf(const Job& job) {
    if (job.paused) return jobs::State::kPaused;
    if (job.verified) return jobs::State::kVerified;
    if (job.failed) return jobs::State::kFailed;
    return job.processing ? jobs::State::kRunning : jobs::State::kWaiting;
}

/// The numbers of those of `all` that a list has.
std::vector<int> Selected(const std::vector<Job>& all, const jobs::Selection& selection) {
    std::vector<int> ids;
    for (const Job& job : all) {
        const bool of_user = selection.user_name.empty() || job.user_name == selection.user_name;
        const bool in_state = selection.state == jobs::State::kAny || StateOf(job) == selection.state;
        if (of_user && in_state && job.id > selection.after) ids.push_back(job.id);
    }
    if (ids.size() > static_cast<std::size_t>(selection.limit)) ids.resize(selection.limit);
    return ids;
}

// Behaviours of: Store

// Behaviour: Every field of a job's table comes back as it was stored, each flag for itself, after a
//   restart too
TEST_P(StoredJobs, EveryFieldComesBack) {
    std::vector<Job> stored{FilledJob("a"), Job{}};
    for (const JobField& field : kJobFields) {
        if (!field.IsFlag()) continue;
        stored.push_back(FilledJob(field.key));
        stored.back().*std::get<bool Job::*>(field.member) = true;
    }
    for (Job& job : stored) job.id = AddJob(job);
    Reopen();
    for (const Job& job : stored) EXPECT_THAT(Differences(FindJob(job.id), job), IsEmpty());
}

// Behaviour: Any text comes back from the store unchanged: quotes, line ends, any letters, 64 kB, what
//   looks like a number
TEST_P(StoredJobs, AnyTextComesBack) {
    for (const std::string& text : AwkwardTexts()) {
        Job job;
        for (const JobField& field : kJobFields) {
            if (field.IsText()) job.*std::get<std::string Job::*>(field.member) = text;
        }
        EXPECT_THAT(Differences(FindJob(AddJob(job)), job), IsEmpty()) << text.substr(0, 40);
    }
}

// Behaviour: Numbers of jobs come back up to the ends of their range
TEST_P(StoredJobs, AnyNumberComesBack) {
    for (const int number : {std::numeric_limits<int>::min(), -1, 0, std::numeric_limits<int>::max()}) {
        Job job;
        for (const JobField& field : kJobFields) {
            if (field.IsNumber()) job.*std::get<int Job::*>(field.member) = number;
        }
        EXPECT_THAT(Differences(FindJob(AddJob(job)), job), IsEmpty()) << number;
    }
}

// Behaviour: A new job has what the panel sets and when it is due; nobody holds it
TEST_P(StoredJobs, ANewOneHasWhatThePanelSets) {
    Job expected = FilledJob("a");
    const int id = Do([&](Transaction& transaction) { return jobs::Add(transaction, expected); });
    for (const JobField& field : kJobFields) {
        if (field.writer == JobField::Writer::kPanel || field.key == std::string("due")) continue;
        std::visit([&](auto member) { expected.*member = Job{}.*member; }, field.member);
    }
    EXPECT_THAT(Differences(FindJob(id), expected), IsEmpty());
    EXPECT_EQ(FindJob(id).holder, Process{});
}

// Behaviour: What the panel sets of a job, and who holds it, is not changed when the job is stored again
TEST_P(StoredJobs, StoringAgainLeavesWhatThePanelSet) {
    const int id = AddJob(FilledJob("before"));
    Do([&](Transaction& transaction) { runs::Hold(transaction, id, Living()); });
    Job expected = FindJob(id);
    Job changed = FilledJob("after");
    changed.id = id;
    Do([&](Transaction& transaction) { jobs::Save(transaction, changed); });
    for (const JobField& field : kJobFields) {
        if (field.writer == JobField::Writer::kPanel) continue;
        std::visit([&](auto member) { expected.*member = changed.*member; }, field.member);
    }
    EXPECT_EQ(FindJob(id), expected);
}

// Behaviour: Storing, claiming, freeing or removing a job changes no other job
TEST_P(StoredJobs, OthersAreLeftAlone) {
    const int id = AddJob(FilledJob("a"));
    const int other = AddJob(FilledJob("b"));
    const Job before = FindJob(other);
    Do([&](Transaction& transaction) {
        Job job = jobs::Find(transaction, id);
        job.challenges = "c";
        jobs::Save(transaction, job);
        runs::Hold(transaction, id, Living());
        runs::Free(transaction, job);
        restarts::Revive(transaction, id);
        jobs::Remove(transaction, id);
    });
    EXPECT_EQ(FindJob(other), before);
}

// Behaviour: A job's number is never given to another job, not even after a restart
TEST_P(StoredJobs, NumbersAreNotUsedAgain) {
    const int first = AddJob();
    const int second = AddJob();
    EXPECT_GT(second, first);
    Do([&](Transaction& transaction) { jobs::Remove(transaction, second); });
    Reopen();
    EXPECT_GT(AddJob(), second);
}

// Behaviour: A job that is not there is an error that names it
TEST_P(StoredJobs, AMissingOneIsAnError) {
    AddJob();
    Transaction transaction(store());
    for (const auto find : {&jobs::Find, &jobs::FindShown}) {
        try {
            find(transaction, 77);
            ADD_FAILURE() << "found";
        } catch (const Error& error) {
            EXPECT_EQ(error.code(), Code::kMissed);
            EXPECT_EQ(error.value(), "77");
        }
    }
}

// Behaviour: What lists, the look at one job and the look at running jobs have holds no account key and no
//   field that lists do not show
TEST_P(StoredJobs, AreShownWithoutTheirKeys) {
    Job job = FilledJob("a");
    job.processing = true;
    job.force_update = true;
    job.skip_account_check = true;
    job.postponed.clear();
    job.id = AddJob(job);
    Do([&](Transaction& transaction) { runs::Claim(transaction, job.id, Living()); });

    Transaction transaction(store());
    const std::vector<Job> shown{jobs::FindShown(transaction, job.id), jobs::List(transaction, {0, 10}).at(0),
                                 jobs::List(transaction, {0, 10, job.user_name}).at(0),
                                 jobs::Running(transaction).at(0)};
    for (const Job& one : shown) {
        EXPECT_EQ(one.acmekey, "");
        EXPECT_THAT(WronglyShown(one, job), IsEmpty());
        EXPECT_EQ(one.id, job.id);
        EXPECT_EQ(one.holder, Living());
    }
}

// Behaviour: A user's job is found by its certificate's folder; of several that an older version let in, the
//   first one
TEST_P(StoredJobs, AreFoundByTheirFolders) {
    const auto add = [&](const std::string& user, const std::string& folder) {
        Job job;
        job.user_name = user;
        job.folder = folder;
        return AddJob(job);
    };
    const auto find = [&](const std::string& user, const std::string& folder) {
        return Do([&](Transaction& transaction) { return jobs::OfFolder(transaction, user, folder); });
    };
    add("bert", "shop.example");
    const int first = add("anna", "shop.example");
    add("anna", "shop.example");
    const int other = add("anna", "blog.example");
    EXPECT_EQ(find("anna", "shop.example"), first);
    EXPECT_EQ(find("anna", "blog.example"), other);
    EXPECT_EQ(find("bert", "blog.example"), std::nullopt);
    EXPECT_EQ(find("anna", "Shop.example"), std::nullopt);
}

// Behaviour: A list of jobs has those with the user and the state asked for, by number, after the number
//   asked for, as many as asked for; each job is in one state
TEST_P(StoredJobs, AreListedByUserAndStateInPages) {
    std::vector<Job> all;
    for (int number = 0; number < 48; ++number) {
        Job job;
        job.user_name = number % 3 == 0 ? "anna" : "it's b\u00fcrt";
        job.verified = (number & 1) != 0;
        job.failed = (number & 2) != 0;
        job.processing = (number & 4) != 0;
        job.id = AddJob(job);
        all.push_back(job);
    }
    const int middle = all[20].id;
    for (const std::string user : {"", "anna", "it's b\u00fcrt", "Anna", "nobody"}) {
        for (const auto state : {jobs::State::kAny, jobs::State::kVerified, jobs::State::kFailed,
                                 jobs::State::kRunning, jobs::State::kWaiting}) {
            const jobs::Selection whole{0, 1000, user, state};
            const jobs::Selection page{middle, 3, user, state};
            EXPECT_EQ(List(whole), Selected(all, whole)) << user << static_cast<int>(state);
            EXPECT_EQ(List(page), Selected(all, page)) << user << static_cast<int>(state);
        }
    }
    EXPECT_THAT(List({all.back().id, 10}), IsEmpty());
}

// Behaviour: The jobs under way are those that are "processing", by number, whatever else became of them
TEST_P(StoredJobs, UnderWayAreThoseInProcess) {
    Job job;
    AddJob(job);
    job.processing = true;
    const int first = AddJob(job);
    job.failed = true;
    const int second = AddJob(job);
    job.verified = true;
    const int third = AddJob(job);
    Transaction transaction(store());
    std::vector<int> running;
    for (const Job& one : jobs::Running(transaction)) running.push_back(one.id);
    EXPECT_THAT(running, ElementsAre(first, second, third));
}

// Behaviour: A removed job is gone with its history, and what others have stays
TEST_P(StoredJobs, AreRemovedWithTheirHistory) {
    const int id = AddJob(FilledJob("a"));
    const int other = AddJob(FilledJob("b"));
    Do([&](Transaction& transaction) {
        for (const int job : {id, other}) history::Add(transaction, job, {"t", "s", "e", "d"});
        jobs::Remove(transaction, id);
        jobs::Remove(transaction, 77);
    });
    EXPECT_THAT(List({0, 10}), ElementsAre(other));
    EXPECT_EQ(Rows("job_event"), 1);
    Transaction transaction(store());
    EXPECT_EQ(history::Of(transaction, other).size(), 1u);
}

// Behaviour: What the panel has refused to a job's run is kept with the job
TEST_P(StoredJobs, KnowWhatWasRefused) {
    const int id = AddJob();
    Do([&](Transaction& transaction) { jobs::SetRefusal(transaction, id, "no zone"); });
    EXPECT_EQ(FindJob(id).refusal, "no zone");
}

// Behaviour: An edited job has all that the panel sets, but for its start, from then on; the rest stays
TEST_P(StoredJobs, AreEdited) {
    const Job before = FilledJob("a");
    const int id = AddJob(before);
    Job edited = FilledJob("b");
    edited.id = id;
    edited.authority = before.authority;  // another one has other accounts
    Do([&](Transaction& transaction) { jobs::Edit(transaction, edited); });
    for (const JobField& field : kJobFields) {
        const bool changes =
            field.writer == JobField::Writer::kPanel && field.key != std::string("time_started");
        const Job& expected = changes ? edited : before;
        const Job found = FindJob(id);
        EXPECT_TRUE(std::visit([&](auto member) { return found.*member == expected.*member; }, field.member))
            << field.key;
    }
    EXPECT_EQ(Rows("job_name"), 2) << "the new names alone";
}

}  // namespace

}  // namespace zelvek::testing
