// Jobs in the store that begin again.
#include "zelvek/store/restarts.h"

#include "engine.h"
#include "zelvek/store/jobs.h"

namespace zelvek::testing {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class StoredRestarts : public StoreTest {};

INSTANTIATE_TEST_SUITE_P(Engines, StoredRestarts, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: Store

// Behaviour: A stopped job that gets another try is no longer failed; all else of it stays
TEST_P(StoredRestarts, AreRevived) {
    Job job = FilledJob("a");
    job.failed = true;
    const int id = AddJob(job);
    Do([&](Transaction& transaction) { restarts::Revive(transaction, id); });
    job.failed = false;
    EXPECT_THAT(Differences(FindJob(id), job), IsEmpty());
}

// Behaviour: Every job of a certificate knows when that ends and is renewed
TEST_P(StoredRestarts, KnowWhenTheirCertificatesEnd) {
    Job job;
    job.user_name = "anna";
    job.folder = "a";
    const int id = AddJob(job);
    job.user_name = "bob";
    const int other = AddJob(job);
    Do([](Transaction& transaction) { restarts::SetValidity(transaction, "anna", "a", {"2", "1"}); });
    Reopen();
    EXPECT_EQ(FindJob(id).expires, "2");
    EXPECT_EQ(FindJob(id).renew, "1");
    EXPECT_EQ(FindJob(other).expires, "");
}

// Behaviour: An authority's word about a renewal changes nothing where another certificate was installed
//   meanwhile
TEST_P(StoredRestarts, AreNotPlannedByAWordAboutAnEarlierCertificate) {
    Job asked;
    asked.user_name = "anna";
    asked.folder = "a";
    asked.expires = "5";
    asked.renew = "3";
    const int id = AddJob(asked);
    Do([](Transaction& transaction) { restarts::SetValidity(transaction, "anna", "a", {"9", "7", "2"}); });
    Do([&](Transaction& transaction) { restarts::SetRenewal(transaction, asked, "4", "8"); });
    EXPECT_EQ(FindJob(id).expires + FindJob(id).renew + FindJob(id).ask_renewal, "972");
    asked.expires = "9";
    Do([&](Transaction& transaction) { restarts::SetRenewal(transaction, asked, "4", "8"); });
    EXPECT_EQ(FindJob(id).expires + FindJob(id).renew + FindJob(id).ask_renewal, "948");
}

// Behaviour: What was told of a certificate's end is not told again since the authority was asked when to
//   renew it
TEST_P(StoredRestarts, KeepWhatWasToldOfAnEnd) {
    Job job;
    job.user_name = "anna";
    job.folder = "a";
    job.expires = "5";
    job.renew = "3";
    job.notice_step = 7;
    job.notice_due = "4";
    const int id = AddJob(job);
    Do([&](Transaction& transaction) { restarts::SetRenewal(transaction, job, "3", "8"); });
    EXPECT_EQ(FindJob(id).notice_step, 7);
    EXPECT_EQ(FindJob(id).notice_due, "4");
    Do([&](Transaction& transaction) { restarts::SetRenewal(transaction, job, "2", "8"); });
    EXPECT_EQ(FindJob(id).notice_step, 7);
    EXPECT_EQ(FindJob(id).notice_due, "2") << "a renewal's time is when to look again";
}

// Behaviour: Installed certificates are to be renewed at their times, the longest due first, and no others
TEST_P(StoredRestarts, AreRenewedAtTheirTimes) {
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
        return Do([&](Transaction& transaction) { return restarts::RenewalDue(transaction, now, limit); });
    };
    EXPECT_THAT(due("2", 10), ElementsAre(first, second));
    EXPECT_THAT(due("2", 1), ElementsAre(first));
    EXPECT_THAT(due("0", 10), IsEmpty());
}

// Behaviour: Installed certificates of which nobody knows the end are found
TEST_P(StoredRestarts, OfUnknownEndAreFound) {
    Job job;
    job.verified = true;
    job.certname = "*.a";
    job.user_name = "anna";
    job.folder = "_wildcard.a";
    const int id = AddJob(job);
    job.expires = "1";
    AddJob(job);
    AddJob();
    const auto found = Do([](Transaction& transaction) { return restarts::OfUnknownEnd(transaction, 10); });
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].id, id);
    EXPECT_EQ(found[0].certname + " " + found[0].user_name + " " + found[0].folder, "*.a anna _wildcard.a");
}

// Behaviour: Certificates to be renewed by hand are chosen by user and by their end, a page at a time
TEST_P(StoredRestarts, AreChosenForRenewal) {
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
    const auto chosen = [&](const restarts::Renewable& which) {
        return Do([&](Transaction& transaction) { return restarts::ToRenew(transaction, which); });
    };
    EXPECT_THAT(chosen({0, 10}), ElementsAre(one, two, three));
    EXPECT_THAT(chosen({one, 1}), ElementsAre(two));
    EXPECT_THAT(chosen({0, 10, "anna"}), ElementsAre(one, two));
    EXPECT_THAT(chosen({0, 10, "", "5"}), ElementsAre(one, three));
    EXPECT_THAT(chosen({0, 10, "anna", "5"}), ElementsAre(one));
}

// Behaviour: A job that starts anew has nothing left of its order, and keeps its account and its
// certificate's times
TEST_P(StoredRestarts, StartAnewWithoutTheirOrder) {
    Job job = FilledJob("x");
    job.verified = job.failed = true;
    const int id = AddJob(job);
    Do([&](Transaction& transaction) { restarts::StartAnew(transaction, id, "2026-01-01 00:00:00", true); });
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
TEST_P(StoredRestarts, ThatWereStoppedAreDueAtTheirTimes) {
    const int second = AddDue("2", &Job::failed);
    const int first = AddDue("1", &Job::failed);
    AddDue("3", &Job::failed);
    AddDue("1");
    AddDue("1", &Job::verified);
    const auto due = [&](int limit) {
        return Do([&](Transaction& transaction) { return restarts::StoppedDue(transaction, "2", limit); });
    };
    EXPECT_THAT(due(10), ElementsAre(first, second));
    EXPECT_THAT(due(1), ElementsAre(first));
}

// Behaviour: Jobs without a certificate of which no run is under way can be tried again, all or a user's; a
// stopped one
//   begins anew
TEST_P(StoredRestarts, AreTriedAgain) {
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
        return Do([&](Transaction& transaction) { return restarts::ToRetry(transaction, after, 10, user); });
    };
    EXPECT_THAT(chosen(0, ""), ElementsAre(waiting, stopped));
    EXPECT_THAT(chosen(waiting, ""), ElementsAre(stopped));
    EXPECT_THAT(chosen(0, "anna"), ElementsAre(waiting));
    Do([&](Transaction& transaction) {
        for (const int id : {waiting, stopped}) restarts::Retry(transaction, id, "5");
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
