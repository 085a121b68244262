// What is raised of the jobs in a store while the test moves the clock.
#include "zelvek/notices/watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <memory>

#include "zelvek/jobs/next_run.h"
#include "zelvek/jobs/renewal.h"
#include "zelvek/store/history.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/problems.h"
#include "zelvek/store/restarts.h"
#include "zelvek/store/store.h"

namespace zelvek::notices {

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;
using vek_date::DateTime;

class Watch : public ::testing::Test {
protected:
    Watch() {
        std::string pattern = (std::filesystem::temp_directory_path() / "zelvek.XXXXXX").string();
        folder_ = ::mkdtemp(pattern.data());
        store_ = std::make_unique<Store>(folder_ / "zelvek.db");
    }

    ~Watch() override {
        store_.reset();
        std::filesystem::remove_all(folder_);
    }

    int Add(const std::string& certname) {
        Job job;
        job.certname = job.domain = job.folder = certname;
        job.user_name = "anna";
        job.res_name = "shop-team";
        Transaction transaction(*store_);
        const int id = jobs::Add(transaction, job);
        transaction.Commit();
        return id;
    }

    void Install(const std::string& folder, const std::string& from, const std::string& until) {
        Transaction transaction(*store_);
        restarts::SetValidity(transaction, "anna", folder, ValidityOf(DateTime(from), DateTime(until), 0));
        problems::ResolveOfCertificate(transaction, "anna", folder);
        transaction.Commit();
    }

    void FailRun(int id, const std::string& now) {
        Transaction transaction(*store_);
        Job job = jobs::Find(transaction, id);
        PlanNextRun(job, Outcome::kRefused, {}, now);
        jobs::Save(transaction, job);
        history::Add(
            transaction, id,
            {now, "failed", "order_failed", "<p><b>Return code:</b> 403</p></br><p><b>Details:</b> no</p>"});
        history::Add(transaction, id, {now, "processing", "later", ""});
        transaction.Commit();
    }

    void LookEveryHour(const std::string& from, const std::string& until) {
        for (DateTime now(from); now <= DateTime(until); now.AddSeconds(3600))
            WatchCertificates(*store_, now);
    }

    std::vector<problems::Problem> Told(problems::State state = problems::State::kAny) {
        Transaction transaction(*store_);
        return problems::List(transaction, state, 0, 1000);
    }

    Store& store() { return *store_; }

private:
    std::filesystem::path folder_;
    std::unique_ptr<Store> store_;
};

// Behaviours of: Notices

// Behaviour: The administrator, the job's user and its further addressee are told of a certificate that is
// not
//   renewed; a further step raises the same notification anew, and the renewal resolves it
TEST_F(Watch, TellsEverybodyOfACertificateThatIsNotRenewed) {
    const int id = Add("shop");
    Install("shop", "2026-01-01 00:00:00", "2026-03-31 00:00:00");
    LookEveryHour("2026-01-01 00:00:00", "2026-03-16 23:00:00");
    EXPECT_THAT(Told(), IsEmpty());
    FailRun(id, "2026-03-16 23:00:00");
    LookEveryHour("2026-03-17 00:00:00", "2026-03-24 00:00:00");
    const auto told = Told(problems::State::kRaised);
    ASSERT_THAT(told, SizeIs(3));
    for (const auto& notice : told) {
        EXPECT_EQ(notice.name, "certificate_ending");
        EXPECT_EQ(notice.level, "warning");
        EXPECT_EQ(notice.user, "anna");
        EXPECT_EQ(notice.about, "shop");
        EXPECT_EQ(notice.since, "2026-03-17 00:00:00");
        EXPECT_EQ(notice.time, "2026-03-24 00:00:00");
        EXPECT_EQ(notice.times, 2);
        EXPECT_THAT(
            notice.parameters,
            ElementsAre(Pair("days", "7"), Pair("expires", "2026-03-31 00:00:00"), Pair("name", "shop"),
                        Pair("reason", "order_failed: Return code: 403 Details: no")));
    }
    EXPECT_EQ(told[0].owner, "anna");
    EXPECT_EQ(told[1].owner, "root");
    EXPECT_EQ(told[2].owner, "shop-team");

    Install("shop", "2026-03-25 00:00:00", "2026-06-23 00:00:00");
    EXPECT_THAT(Told(problems::State::kResolved), SizeIs(3));
    LookEveryHour("2026-03-25 00:00:00", "2026-06-08 23:00:00");
    EXPECT_THAT(Told(problems::State::kRaised), IsEmpty());
    LookEveryHour("2026-06-09 00:00:00", "2026-06-09 00:00:00");
    EXPECT_THAT(Told(problems::State::kRaised), SizeIs(3))
        << "the new certificate begins from the first step";
}

// Behaviour: A job whose first runs fail is told once and then weekly, until its certificate is there
TEST_F(Watch, TellsOfAJobThatKeepsFailing) {
    const int id = Add("shop");
    const auto times = [&] {
        const auto told = Told(problems::State::kRaised);
        return told.empty() ? 0 : told[0].times;
    };
    FailRun(id, "2026-03-01 00:00:00");
    FailRun(id, "2026-03-01 01:00:00");
    LookEveryHour("2026-03-01 00:00:00", "2026-03-02 00:00:00");
    EXPECT_EQ(times(), 0);
    for (int day = 3; day <= 9; ++day) {
        const std::string date = "2026-03-0" + std::to_string(day);
        FailRun(id, date + " 00:00:00");
        LookEveryHour(date + " 00:00:00", date + " 23:00:00");
        EXPECT_EQ(times(), 1);
    }
    LookEveryHour("2026-03-10 00:00:00", "2026-03-16 23:00:00");
    EXPECT_EQ(times(), 2);
    EXPECT_EQ(Told()[0].name, "certificate_missing");
    Install("shop", "2026-03-17 00:00:00", "2026-06-15 00:00:00");
    LookEveryHour("2026-03-17 00:00:00", "2026-04-17 00:00:00");
    EXPECT_THAT(Told(problems::State::kRaised), IsEmpty());
    EXPECT_THAT(Told(problems::State::kResolved), SizeIs(3));
}

// Behaviour: A job that nothing is to be told of is not looked at, and of many that are due some are at once
TEST_F(Watch, LooksAtWhatIsDueAlone) {
    constexpr int kMoreThanAtOnce = 150;
    for (int i = 0; i < kMoreThanAtOnce; ++i) {
        const std::string name = "shop" + std::to_string(i);
        Add(name);
        Install(name, "2026-01-01 00:00:00", "2026-03-31 00:00:00");
    }
    Add("quiet");
    const auto due = [&](const std::string& now) {
        Transaction transaction(store());
        return jobs::NoticeDue(transaction, now, 1000).size();
    };
    EXPECT_EQ(due("2026-02-28 00:00:00"), 0u);
    EXPECT_EQ(due("2026-03-02 00:00:00"), 150u);
    WatchCertificates(store(), DateTime("2026-03-02 00:00:00"));
    EXPECT_EQ(due("2026-03-02 00:00:00"), 50u);
    WatchCertificates(store(), DateTime("2026-03-02 00:00:00"));
    EXPECT_EQ(due("2026-03-16 23:59:59"), 0u) << "until the first step";
    EXPECT_EQ(due("2026-03-17 00:00:00"), 150u);
}

}  // namespace

}  // namespace zelvek::notices
