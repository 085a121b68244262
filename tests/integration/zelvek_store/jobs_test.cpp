// Certificate jobs in the store.
#include "zelvek/store/jobs.h"

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

    std::vector<int> Due(const std::string& now, int limit = 100) {
        Transaction transaction(store());
        return jobs::Due(transaction, now, limit);
    }

    int JobOf(const Process& process) {
        Transaction transaction(store());
        return jobs::JobOf(transaction, process);
    }

    int AddDue(const std::string& due, bool Job::*flag = nullptr) {
        Job job;
        job.due = due;
        if (flag != nullptr) job.*flag = true;
        return AddJob(job);
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
    Do([&](Transaction& transaction) { jobs::Hold(transaction, id, Living()); });
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
        jobs::Hold(transaction, id, Living());
        jobs::Free(transaction, job);
        jobs::Revive(transaction, id);
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
    job.id = AddJob(job);
    Do([&](Transaction& transaction) { jobs::Claim(transaction, job.id, Living()); });

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

// Behaviour: Waiting jobs whose times lie too far in the future are found, others are not
TEST_P(StoredJobs, WithTimesInTheFutureAreFound) {
    const auto add = [&](const std::string& last_run, const std::string& next, const std::string& due,
                         bool Job::*flag = nullptr) {
        Job job;
        job.last_run = last_run;
        job.next_attempt = next;
        job.due = due;
        if (flag != nullptr) job.*flag = true;
        return AddJob(job);
    };
    const std::string past = "2026-01-01 00:00:00";
    const std::string now = "2026-01-02 00:00:00";
    const std::string later = "2026-01-02 12:00:00";
    const std::string latest = "2026-01-03 00:00:00";
    const std::string too_late = "2026-01-03 00:00:01";
    const std::vector<int> expected{add(later, "", later),  add(later, later, later),
                                    add("", "", later),     add(past, too_late, too_late),
                                    add("never", "", past), add(past, "", "never")};
    for (const std::string& due : {past, now, later, latest}) {
        add(past, due, due);
        add(now, due, due);
        add("", due, due);
    }
    add("", "", now);
    for (bool Job::*flag : {&Job::verified, &Job::failed, &Job::processing}) add(later, "", "never", flag);
    const auto find = [&](int limit) {
        return Do(
            [&](Transaction& transaction) { return jobs::WaitingTooLong(transaction, now, latest, limit); });
    };
    EXPECT_EQ(find(100), expected);
    EXPECT_EQ(find(1).size(), 3U) << "one for each reason";
}

// Behaviour: A job's times are stored, and nothing else of it
TEST_P(StoredJobs, TimesAreStoredAlone) {
    const int id = AddJob(FilledJob("before"));
    Job expected = FindJob(id);
    Job changed = FilledJob("after");
    changed.id = id;
    Do([&](Transaction& transaction) { jobs::SetTimes(transaction, changed); });
    for (const auto member : {&Job::time_started, &Job::last_run, &Job::next_attempt, &Job::due}) {
        expected.*member = changed.*member;
    }
    EXPECT_EQ(FindJob(id), expected);
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

// Behaviour: Jobs that are due come in the order of their times, then of their numbers, as many as asked
//   for; none of them is verified, failed or under way
TEST_P(StoredJobs, AreDueInTheOrderOfTheirTimes) {
    const int late = AddDue("2026-01-03 00:00:00");
    const int early = AddDue("2026-01-01 00:00:00");
    const int now = AddDue("2026-01-05 00:00:00");
    const int also_late = AddDue("2026-01-03 00:00:00");
    AddDue("2026-01-05 00:00:01");
    AddDue("2025-01-01 00:00:00", &Job::verified);
    AddDue("2025-01-01 00:00:00", &Job::failed);
    AddDue("2025-01-01 00:00:00", &Job::processing);
    EXPECT_THAT(Due("2026-01-05 00:00:00"), ElementsAre(early, late, also_late, now));
    EXPECT_THAT(Due("2026-01-05 00:00:00", 2), ElementsAre(early, late));
    EXPECT_THAT(Due("2025-12-31 00:00:00"), IsEmpty());
}

// Behaviour: Users take turns: a user's many due jobs come after another's first one, and after what the user
//   has running
TEST_P(StoredJobs, AreDueInTurnsBetweenUsers) {
    const auto add = [&](const std::string& user, const std::string& due, bool running = false) {
        Job job = FilledJob(user + due);
        job.user_name = user;
        job.due = due;
        job.verified = job.failed = false;
        job.processing = running;
        Do([&](Transaction& transaction) {
            job.id = jobs::Add(transaction, job);
            jobs::Save(transaction, job);
        });
        return job.id;
    };
    const int first = add("anna", "2026-01-01 00:00:00");
    const int second = add("anna", "2026-01-01 00:00:01");
    const int only = add("bert", "2026-01-02 00:00:00");
    EXPECT_THAT(Due("2026-01-05 00:00:00"), ElementsAre(first, only, second));
    add("anna", "2026-01-01 00:00:00", true);
    EXPECT_THAT(Due("2026-01-05 00:00:00"), ElementsAre(only, first, second));
}

// Behaviour: A job is claimed only while it is due and nobody works on it
TEST_P(StoredJobs, AreClaimedOnlyWhileDue) {
    const int id = AddDue("2026-01-03 00:00:00");
    const auto claim = [&](const std::string& now) {
        bool claimed = false;
        Do([&](Transaction& transaction) { claimed = jobs::ClaimIfDue(transaction, id, Living(), now); });
        return claimed;
    };
    EXPECT_FALSE(claim("2026-01-02 23:59:59"));
    EXPECT_TRUE(claim("2026-01-03 00:00:00"));
    EXPECT_FALSE(claim("2026-01-03 00:00:00"));
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

// Behaviour: A claimed job is under way and its process's, and so is one that was read; only the reader's
//   publications are the job's
TEST_P(StoredJobs, AreClaimedAndHeld) {
    const OtherProcess other;
    const int claimed = AddJob(FilledJob("a"));
    const int held = AddJob(FilledJob("b"));
    Do([&](Transaction& transaction) {
        jobs::Claim(transaction, claimed, Living());
        jobs::Hold(transaction, held, other.process());
    });
    EXPECT_TRUE(FindJob(claimed).processing);
    EXPECT_EQ(FindJob(claimed).holder, Living());
    EXPECT_TRUE(FindJob(held).processing);
    EXPECT_EQ(FindJob(held).holder, other.process());
    EXPECT_EQ(JobOf(Living()), 0);
    EXPECT_EQ(JobOf(other.process()), held);
    EXPECT_THAT(Differences(FindJob(held), FilledJob("b")), ElementsAre("processing"));
}

// Behaviour: Of the jobs that a process has read the last one is its job; a process that has the same id
//   after it has none
TEST_P(StoredJobs, AProcessHasTheJobThatItReadLast) {
    const int first = AddJob();
    const int second = AddJob();
    Do([&](Transaction& transaction) {
        jobs::Hold(transaction, second, Dead());
        jobs::Hold(transaction, second, Living());
        jobs::Hold(transaction, first, Living());
    });
    EXPECT_EQ(JobOf(Living()), first);
    EXPECT_EQ(JobOf(Dead()), 0);
}

// Behaviour: Dead processes are forgotten, living ones are not
TEST_P(StoredJobs, ReadersThatDiedAreForgotten) {
    const OtherProcess other;
    const int id = AddJob();
    Do([&](Transaction& transaction) {
        jobs::Hold(transaction, id, Dead());
        jobs::Hold(transaction, id, other.process());
        jobs::ForgetDeadProcesses(transaction);
    });
    EXPECT_EQ(JobOf(Dead()), 0);
    EXPECT_EQ(JobOf(other.process()), id);
    EXPECT_EQ(Rows("reader"), 1);
}

// Behaviour: A process with the largest id and start time comes back
TEST_P(StoredJobs, LargeProcessNumbersComeBack) {
    const Process process{std::numeric_limits<pid_t>::max(), std::numeric_limits<long long>::max()};
    const int id = AddJob();
    Do([&](Transaction& transaction) { jobs::Hold(transaction, id, process); });
    EXPECT_EQ(FindJob(id).holder, process);
    EXPECT_EQ(JobOf(process), id);
}

// Behaviour: A freed job is no longer under way and has the times given; all else of it stays
TEST_P(StoredJobs, AreFreed) {
    Job job = FilledJob("a");
    job.processing = true;
    const int id = AddJob(job);
    Do([&](Transaction& transaction) { jobs::Claim(transaction, id, Living()); });
    job.id = id;
    job.last_run = "last";
    job.failures = 7;
    job.due = "next";
    Do([&](Transaction& transaction) { jobs::Free(transaction, job); });
    job.processing = false;
    EXPECT_THAT(Differences(FindJob(id), job), IsEmpty());
}

// Behaviour: A stopped job that gets another try is no longer failed; all else of it stays
TEST_P(StoredJobs, AreRevived) {
    Job job = FilledJob("a");
    job.failed = true;
    const int id = AddJob(job);
    Do([&](Transaction& transaction) { jobs::Revive(transaction, id); });
    job.failed = false;
    EXPECT_THAT(Differences(FindJob(id), job), IsEmpty());
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

// Behaviour: Every job of a certificate knows when that ends and is renewed
TEST_P(StoredJobs, KnowWhenTheirCertificatesEnd) {
    Job job;
    job.user_name = "anna";
    job.folder = "a";
    const int id = AddJob(job);
    job.user_name = "bob";
    const int other = AddJob(job);
    Do([](Transaction& transaction) { jobs::SetValidity(transaction, "anna", "a", {"2", "1"}); });
    Reopen();
    EXPECT_EQ(FindJob(id).expires, "2");
    EXPECT_EQ(FindJob(id).renew, "1");
    EXPECT_EQ(FindJob(other).expires, "");
}

// Behaviour: Installed certificates are to be renewed at their times, the longest due first, and no others
TEST_P(StoredJobs, AreRenewedAtTheirTimes) {
    const auto add = [&](const std::string& renew, bool verified, bool processing = false) {
        Job job;
        job.renew = renew;
        job.verified = verified;
        job.processing = processing;
        return AddJob(job);
    };
    const int second = add("2", true);
    const int first = add("1", true);
    add("3", true);
    add("", true);
    add("1", false);
    add("1", true, true);
    const auto due = [&](const std::string& now, int limit) {
        return Do([&](Transaction& transaction) { return jobs::RenewalDue(transaction, now, limit); });
    };
    EXPECT_THAT(due("2", 10), ElementsAre(first, second));
    EXPECT_THAT(due("2", 1), ElementsAre(first));
    EXPECT_THAT(due("0", 10), IsEmpty());
}

// Behaviour: Installed certificates of which nobody knows the end are found
TEST_P(StoredJobs, OfUnknownEndAreFound) {
    Job job;
    job.verified = true;
    job.certname = "*.a";
    job.user_name = "anna";
    job.folder = "_wildcard.a";
    const int id = AddJob(job);
    job.expires = "1";
    AddJob(job);
    AddJob();
    const auto found = Do([](Transaction& transaction) { return jobs::OfUnknownEnd(transaction, 10); });
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].id, id);
    EXPECT_EQ(found[0].certname + " " + found[0].user_name + " " + found[0].folder, "*.a anna _wildcard.a");
}

// Behaviour: Certificates to be renewed by hand are chosen by user and by their end, a page at a time
TEST_P(StoredJobs, AreChosenForRenewal) {
    const auto add = [&](const std::string& user, const std::string& expires, bool verified = true) {
        Job job;
        job.user_name = user;
        job.expires = expires;
        job.verified = verified;
        return AddJob(job);
    };
    const int one = add("anna", "1");
    const int two = add("anna", "5");
    const int three = add("bob", "1");
    add("bob", "1", false);
    const auto chosen = [&](const jobs::Renewable& which) {
        return Do([&](Transaction& transaction) { return jobs::ToRenew(transaction, which); });
    };
    EXPECT_THAT(chosen({0, 10}), ElementsAre(one, two, three));
    EXPECT_THAT(chosen({one, 1}), ElementsAre(two));
    EXPECT_THAT(chosen({0, 10, "anna"}), ElementsAre(one, two));
    EXPECT_THAT(chosen({0, 10, "", "5"}), ElementsAre(one, three));
    EXPECT_THAT(chosen({0, 10, "anna", "5"}), ElementsAre(one));
}

// Behaviour: A job that starts anew has nothing left of its order, and keeps its account and its
// certificate's times
TEST_P(StoredJobs, StartAnewWithoutTheirOrder) {
    Job job = FilledJob("x");
    job.verified = job.failed = true;
    const int id = AddJob(job);
    Do([&](Transaction& transaction) { jobs::StartAnew(transaction, id, "2026-01-01 00:00:00", true); });
    const Job anew = FindJob(id);
    Job expected = job;
    expected.id = id;
    expected.holder = anew.holder;
    expected.verified = expected.failed = false;
    expected.force_update = true;
    expected.time_started = expected.due = "2026-01-01 00:00:00";
    expected.next_attempt = expected.challenges = expected.finalize = expected.finalize_check = "";
    expected.attempt_count = expected.account_check_count = 0;
    EXPECT_THAT(Differences(anew, expected), IsEmpty());
}

// Behaviour: Stopped jobs whose time has come are found, the longest due first
TEST_P(StoredJobs, ThatWereStoppedAreDueAtTheirTimes) {
    const int second = AddDue("2", &Job::failed);
    const int first = AddDue("1", &Job::failed);
    AddDue("3", &Job::failed);
    AddDue("1");
    AddDue("1", &Job::verified);
    const auto due = [&](int limit) {
        return Do([&](Transaction& transaction) { return jobs::StoppedDue(transaction, "2", limit); });
    };
    EXPECT_THAT(due(10), ElementsAre(first, second));
    EXPECT_THAT(due(1), ElementsAre(first));
}

// Behaviour: What the panel has refused to a job's run is kept with the job
TEST_P(StoredJobs, KnowWhatWasRefused) {
    const int id = AddJob();
    Do([&](Transaction& transaction) { jobs::SetRefusal(transaction, id, "no zone"); });
    EXPECT_EQ(FindJob(id).refusal, "no zone");
}

// Behaviour: Jobs without a certificate of which no run is under way can be tried again, all or a user's; a
// stopped one
//   begins anew
TEST_P(StoredJobs, AreTriedAgain) {
    Job job;
    job.user_name = "anna";
    job.next_attempt = job.due = "9";
    job.failures = 3;
    job.challenges = "c";
    const int waiting = AddJob(job);
    job.user_name = "bob";
    job.failed = true;
    const int stopped = AddJob(job);
    AddDue("1", &Job::verified);
    AddDue("1", &Job::processing);
    const auto chosen = [&](int after, const std::string& user) {
        return Do([&](Transaction& transaction) { return jobs::ToRetry(transaction, after, 10, user); });
    };
    EXPECT_THAT(chosen(0, ""), ElementsAre(waiting, stopped));
    EXPECT_THAT(chosen(waiting, ""), ElementsAre(stopped));
    EXPECT_THAT(chosen(0, "anna"), ElementsAre(waiting));
    Do([&](Transaction& transaction) {
        for (const int id : {waiting, stopped}) jobs::Retry(transaction, id, "5");
    });
    for (const int id : {waiting, stopped}) {
        const Job tried = FindJob(id);
        EXPECT_EQ(tried.due + tried.next_attempt, "5");
        EXPECT_EQ(tried.failures, 0);
        EXPECT_FALSE(tried.failed);
        EXPECT_EQ(tried.challenges, id == waiting ? "c" : "");
    }
}

}  // namespace

}  // namespace zelvek::testing
