// What the service's page has in the store.
#include "engine.h"
#include "zelvek/store/job_lists.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/page_deeds.h"
#include "zelvek/store/page_sessions.h"
#include "zelvek/store/problems.h"
#include "zelvek/store/tallies.h"

namespace zelvek::testing {

namespace {

using page_sessions::Kind;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class PageRecords : public StoreTest {
protected:
    std::vector<std::string> Names(const job_lists::ByName& selection) {
        std::vector<std::string> names;
        for (const Job& job :
             Do([&](Transaction& transaction) { return job_lists::SomeByName(transaction, selection); }))
            names.push_back(job.certname + " " + job.user_name);
        return names;
    }

    void AddNamed(const std::string& name, const std::string& user) {
        Job job;
        job.certname = name;
        job.user_name = user;
        AddJob(job);
    }
};

INSTANTIATE_TEST_SUITE_P(Engines, PageRecords, ::testing::ValuesIn(Engines()), EngineName);

// Behaviours of: The page

// Behaviour: Sessions and links are kept apart, outlive a restart, and go one by one, all at once, or when
// they are
//   old or unused
TEST_P(PageRecords, SessionsAreKeptUntilTheyEnd) {
    const auto add = [&](Kind kind, const std::string& began, const std::string& seen) {
        return Do([&](Transaction& transaction) {
            return page_sessions::Add(transaction, {0, kind, "hash", "anna", began, seen, "agent"});
        });
    };
    const auto count = [&](Kind kind) {
        return Do([&](Transaction& transaction) { return page_sessions::List(transaction, kind, 0, 10); })
            .size();
    };
    const long long link = add(Kind::kLink, "2", "2");
    const long long session = add(Kind::kSession, "2", "2");
    add(Kind::kSession, "1", "9");
    add(Kind::kSession, "9", "1");
    Reopen();
    Do([&](Transaction& transaction) {
        EXPECT_FALSE(page_sessions::Find(transaction, Kind::kSession, link));
        const auto found = page_sessions::Find(transaction, Kind::kSession, session);
        ASSERT_TRUE(found);
        EXPECT_EQ(found->hash + found->user_name + found->agent, "hashannaagent");
        page_sessions::RemoveOlder(transaction, Kind::kSession, "2", "2");
    });
    EXPECT_EQ(count(Kind::kSession), 1U);
    EXPECT_EQ(count(Kind::kLink), 1U);
    Do([&](Transaction& transaction) {
        page_sessions::SetSeen(transaction, session, "7");
        EXPECT_EQ(page_sessions::Find(transaction, Kind::kSession, session)->seen, "7");
        EXPECT_FALSE(page_sessions::Remove(transaction, Kind::kSession, link));
        EXPECT_TRUE(page_sessions::Remove(transaction, Kind::kLink, link));
        EXPECT_EQ(page_sessions::RemoveAll(transaction, Kind::kSession), 1);
    });
    EXPECT_EQ(count(Kind::kSession), 0U);
}

// Behaviour: Who did what by the page is read from the newest on, page by page, and the oldest are forgotten
// first
TEST_P(PageRecords, DeedsAreReadFromTheNewestOn) {
    const auto what = [&](long long before, int limit) {
        std::vector<std::string> texts;
        for (const auto& deed :
             Do([&](Transaction& transaction) { return page_deeds::Newest(transaction, before, limit); }))
            texts.push_back(std::to_string(deed.number) + deed.what);
        return texts;
    };
    for (const std::string text : {"a", "b", "c"}) {
        Do([&](Transaction& transaction) { page_deeds::Add(transaction, {0, text, "anna", text}); });
    }
    EXPECT_THAT(what(100, 2), ElementsAre("3c", "2b"));
    EXPECT_THAT(what(2, 2), ElementsAre("1a"));
    Do([](Transaction& transaction) { page_deeds::RemoveOlder(transaction, "c", 1); });
    EXPECT_THAT(what(100, 9), ElementsAre("3c", "2b"));
}

// Behaviour: Certificates are listed by the beginning of their names, everybody's or one user's, page by page
TEST_P(PageRecords, JobsAreListedByTheBeginningOfTheirNames) {
    for (const std::string user : {"bert", "anna"}) {
        for (const std::string name : {"shop.example",
                                       "b\xc3\xbc"
                                       "cher.example",
                                       "shop.test", "a.example"})
            AddNamed(name, user);
    }
    EXPECT_THAT(Names({"shop.", "", {}, 10}),
                ElementsAre("shop.example bert", "shop.example anna", "shop.test bert", "shop.test anna"));
    EXPECT_THAT(Names({"shop.", "anna", {}, 10}), ElementsAre("shop.example anna", "shop.test anna"));
    EXPECT_THAT(Names({"shop.", "", {"shop.example", 1}, 2}),
                ElementsAre("shop.example anna", "shop.test bert"));
    EXPECT_THAT(Names({"b\xc3\xbc", "anna", {}, 10}), ElementsAre("b\xc3\xbc"
                                                                  "cher.example anna"));
    EXPECT_EQ(Names({"", "", {}, 10}).size(), 8U);
    EXPECT_THAT(Names({"%", "", {}, 10}), IsEmpty());
}

// Behaviour: One owner's open notifications are listed without everybody else's
TEST_P(PageRecords, OpenNotificationsAreListedForOneOwner) {
    Do([](Transaction& transaction) {
        for (const std::string owner : {"anna", "bert", "root"})
            problems::Raise(transaction, {.name = "n", .owner = owner, .user = "anna"});
        const auto of_anna = problems::OpenOf(transaction, "anna", 0, 10);
        ASSERT_EQ(of_anna.size(), 1U);
        problems::Clear(transaction, of_anna.front().number);
        EXPECT_THAT(problems::OpenOf(transaction, "anna", 0, 10), IsEmpty());
    });
}

// Behaviour: Ended runs are counted for each day, and old days are forgotten
TEST_P(PageRecords, RunsAreCountedForEachDay) {
    Do([](Transaction& transaction) {
        for (const std::string day : {"2031-02-01", "2031-02-02", "2031-02-02"})
            tallies::CountRunOfDay(transaction, day, "installed");
        const auto all = tallies::OfRunsSince(transaction, "2031-02-01");
        ASSERT_EQ(all.size(), 2U);
        EXPECT_EQ(all[0].runs, 1);
        EXPECT_EQ(all[1].runs, 2);
        tallies::ForgetDaysBefore(transaction, "2031-02-02");
        EXPECT_EQ(tallies::OfRunsSince(transaction, "").size(), 1U);
    });
}

// Behaviour: Somebody who wants to know is told of each transaction that has changed something, and of no
// other
TEST_P(PageRecords, ChangesAreTold) {
    int told = 0;
    store().TellOfChange([&] { ++told; });
    AddNamed("shop.example", "anna");
    EXPECT_EQ(told, 1);
    Do([](Transaction& transaction) { jobs::FindShown(transaction, 1); });
    Do([](Transaction& transaction) { problems::Resolve(transaction, "n", "anna", "f"); });
    EXPECT_EQ(told, 1) << "nothing was changed";
    {
        Transaction transaction(store());
        jobs::SetRefusal(transaction, 1, "r");
    }
    EXPECT_EQ(told, 1) << "it was rolled back";
    store().TellOfChange({});
    AddNamed("blog.example", "anna");
    EXPECT_EQ(told, 1);
}

}  // namespace

}  // namespace zelvek::testing
