// A store as it goes from one engine to the other.
#include "zelvek/moving/store_copy.h"

#include <SQLiteCpp/Database.h>
#include <unistd.h>

#include <cstdlib>
#include <set>
#include <stdexcept>

#include "../zelvek_store/engine.h"
#include "server.h"
#include "zelvek/base/error.h"
#include "zelvek/store/accounts.h"
#include "zelvek/store/answered.h"
#include "zelvek/store/copy_mark.h"
#include "zelvek/store/domains.h"
#include "zelvek/store/findings.h"
#include "zelvek/store/history.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/problems.h"
#include "zelvek/store/publications.h"
#include "zelvek/store/requests.h"
#include "zelvek/store/rows.h"
#include "zelvek/store/served.h"
#include "zelvek/store/tallies.h"
#include "zelvek/store/usage.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

constexpr int kManyJobs = 600;  // more than a page

void FillJobs(Transaction& transaction) {
    for (int i = 0; i < kManyJobs; ++i) {
        Job job = FilledJob(std::to_string(i));
        job.user_name = i % 2 == 0 ? "anna" : "b\u00e9la";
        job.expires = "2031-01-0" + std::to_string(1 + i % 9) + " 00:00:00";
        job.paused = i % 7 == 0;
        job.id = jobs::Add(transaction, job);
        if (i % 3 == 0) jobs::Save(transaction, job);
        history::Add(transaction, job.id,
                     {"t", "s", "e", AwkwardTexts()[static_cast<std::size_t>(i) % AwkwardTexts().size()]});
    }
    jobs::Remove(transaction, kManyJobs);  // its number is not to be given again
    accounts::MakeDefault(transaction, 1);
}

void FillOthers(Transaction& transaction) {
    for (const std::string& text : AwkwardTexts())
        answered::Put(transaction, "id of " + text.substr(0, 50), text, "t");
    domains::Add(transaction, {0, "b\u00fccher.example", "xn--bcher-kva.example", "anna"});
    problems::Raise(transaction, {"1", "n", "l", "o", "t", {{"a", "\n"}, {"b", ""}}});
    publications::Publication entry;
    entry.item = {"z", "n", "v"};
    entry.job = 1;
    publications::Restore(transaction, entry);
    requests::Put(transaction, "n", Living(), {"r", "k"}, "t");
    served::Expect(transaction, {"anna", "f", "c", "d", "t", "t"});
    findings::Put(transaction, 1, {{"n", "p", "s", "d", "t"}, {"m", "p", "s", "d", "t"}});
    tallies::CountRun(transaction, "o", "r");
    tallies::CountDuration(transaction, {10, 1, 7});
    usage::Note(transaction, 1, {usage::Kind::kOrder, "k", "t", true});
}

class StoreCopy : public ::testing::Test {
protected:
    StoreCopy() {
        std::string pattern = (fs::temp_directory_path() / "zelvek.XXXXXX").string();
        folder_ = ::mkdtemp(pattern.data());
        server_.Renew();
    }
    ~StoreCopy() override { fs::remove_all(folder_); }

    fs::path File(const std::string& name) const { return folder_ / name; }

    static void Fill(const Place& place) {
        Store store(place);
        Transaction transaction(store);
        FillJobs(transaction);
        FillOthers(transaction);
        transaction.Commit();
    }

    static moving::CopyReport Copy(const Place& from, const Place& to) {
        return moving::CopyStore(from, to, [](const std::string&, long long) {});
    }

    /// As somebody does who ends it after so many pages.
    static void CopyAPart(const Place& from, const Place& to, int pages) {
        const auto stop = [&](const std::string&, long long) {
            if (--pages == 0) throw std::runtime_error("stopped");
        };
        EXPECT_THROW(moving::CopyStore(from, to, stop), std::runtime_error);
    }

    static Error RefusalOf(const Place& from, const Place& to) {
        try {
            Copy(from, to);
        } catch (const Error& error) {
            return error;
        }
        ADD_FAILURE() << "it was copied";
        return Error(Code::kInternal, "");
    }

    static std::set<std::string> Digests(const moving::CopyReport& report) {
        std::set<std::string> digests;
        for (const auto& table : report.tables) digests.insert(table.name + table.digest);
        return digests;
    }

    fs::path folder_;
    PostgresqlServer& server_ = PostgresqlServer::Shared();
};

// Behaviours of: Moving to another machine

// Behaviour: A store is the same after it went from a file to a server and back: every row of every table,
//   and the numbers that were given
TEST_F(StoreCopy, GoesThereAndBack) {
    Fill(File("a.db"));
    const auto there = Copy(File("a.db"), server_.Url());
    const auto back = Copy(server_.Url(), File("b.db"));
    EXPECT_EQ(Digests(there), Digests(back));
    EXPECT_EQ(there.mended, 0);
    EXPECT_THAT(server_.Do("SELECT count(*) FROM job"), ElementsAre(std::to_string(kManyJobs - 1)));
    for (const Place& place : {Place(server_.Url()), Place(File("b.db"))}) {
        Store store(place);
        copy_mark::CheckIsNone(store);
        Transaction transaction(store);
        EXPECT_EQ(jobs::Add(transaction, FilledJob("new")), kManyJobs + 1);
        EXPECT_EQ(history::Of(transaction, 2).at(0).detail, AwkwardTexts()[1]);
        EXPECT_EQ(accounts::Default(transaction, "0 authority").kid, "0 kid");
        problems::Raise(transaction, {"2", "m", "l", "o", "t"});
        publications::Publication entry;
        entry.item = {"z", "n", "w"};
        publications::Restore(transaction, entry);
    }
}

// Behaviour: Every table of a new store is one that is copied
TEST_F(StoreCopy, HasEveryTable) {
    std::set<std::string> copied;
    for (const auto& table : rows::Tables()) copied.insert(table.name);
    const auto tables = server_.Do(
        "SELECT tablename FROM pg_tables WHERE schemaname = 'public' AND tablename <> 'zelvek_version'");
    EXPECT_EQ(std::set<std::string>(tables.begin(), tables.end()), copied);
}

// Behaviour: A copy that was interrupted goes on when it is asked for again; meanwhile no service uses what
// is
//   there, and no other store is copied into it
TEST_F(StoreCopy, GoesOnAfterAnInterruption) {
    Fill(File("a.db"));
    { Store(File("other.db")); }
    for (const auto& [from, to] : {std::pair{Place(File("a.db")), Place(server_.Url())},
                                   std::pair{Place(server_.Url()), Place(File("b.db"))}}) {
        CopyAPart(from, to, 3);
        {
            Store store(to);
            EXPECT_THROW(copy_mark::CheckIsNone(store), Error);
        }
        EXPECT_THAT(RefusalOf(File("other.db"), to).what(), HasSubstr("it is being copied from"));
        CopyAPart(from, to, 2);
        EXPECT_THAT(Copy(from, to).tables, SizeIs(rows::Tables().size()));
    }
}

// Behaviour: A source that was changed after its copy was interrupted is found in the comparison
TEST_F(StoreCopy, FindsAChangeOfTheSource) {
    Fill(File("a.db"));
    CopyAPart(File("a.db"), server_.Url(), 4);
    {
        Store store(File("a.db"));
        Transaction transaction(store);
        jobs::SetRefusal(transaction, 1, "changed");
        transaction.Commit();
    }
    const Error refusal = RefusalOf(File("a.db"), server_.Url());
    EXPECT_EQ(refusal.code(), Code::kIo);
    EXPECT_THAT(refusal.what(), HasSubstr("the copy of the table job differs"));
}

// Behaviour: Nothing is copied into a store with something in it, from one that is not there, or while a
//   service has either
TEST_F(StoreCopy, RefusesWhatWouldLoseSomething) {
    { Store(File("a.db")); }
    {
        Store store(server_.Url());
        Transaction transaction(store);
        domains::Add(transaction, {0, "n.example", "n.example", "anna"});
        transaction.Commit();
        EXPECT_EQ(RefusalOf(File("a.db"), server_.Url()).code(), Code::kBusy);
        EXPECT_EQ(RefusalOf(server_.Url(), File("b.db")).code(), Code::kBusy);
    }
    EXPECT_EQ(RefusalOf(File("a.db"), server_.Url()).code(), Code::kExists);
    EXPECT_EQ(RefusalOf(File("none.db"), server_.Url()).code(), Code::kMissed);
    EXPECT_FALSE(fs::exists(File("none.db")));
    EXPECT_EQ(RefusalOf(File("a.db"), File("a.db")).code(), Code::kValue);
    EXPECT_THAT(server_.Do("SELECT name FROM domain"), ElementsAre("n.example"));
}

// Behaviour: A text that is no UTF-8, or has zero bytes, is kept with U+FFFD in their place, on either
// engine;
//   what older versions have kept otherwise is mended when it is copied
TEST_F(StoreCopy, MendsTexts) {
    const std::string bad("a\0b\xff\xc3", 5);
    const std::string mended =
        "a\xef\xbf\xbd"
        "b\xef\xbf\xbd\xef\xbf\xbd";
    for (const Place& place : {Place(File("a.db")), Place(server_.Url())}) {
        Store store(place);
        Transaction transaction(store);
        answered::Put(transaction, "i", bad, "t");
        EXPECT_EQ(answered::Find(transaction, "i"), mended);
        transaction.Commit();
    }
    server_.Renew();
    SQLite::Database(File("a.db").string(), SQLite::OPEN_READWRITE)
        .exec("UPDATE answered_query SET answer = CAST (x'610062ffc3' AS TEXT)");
    EXPECT_EQ(Copy(File("a.db"), server_.Url()).mended, 1);
    EXPECT_THAT(server_.Do("SELECT answer FROM answered_query"), ElementsAre(mended));
}

}  // namespace

}  // namespace zelvek::testing
