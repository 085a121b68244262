// Several who use one server's database.
#include <latch>
#include <thread>

#include "../zelvek_store/engine.h"
#include "server.h"
#include "zelvek/base/error.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/migrations.h"

namespace zelvek::testing {

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class SharedDatabase : public ::testing::Test {
protected:
    SharedDatabase() { server_.Renew(); }

    static int AddJob(Store& store) {
        Transaction transaction(store);
        const int id = jobs::Add(transaction, FilledJob("a"));
        transaction.Commit();
        return id;
    }

    static void Count(Store& store, int id) {
        Transaction transaction(store);
        Job job = jobs::Find(transaction, id);
        ++job.attempt_count;
        jobs::Save(transaction, job);
        transaction.Commit();
    }

    static int CountOf(Store& store, int id) {
        Transaction transaction(store);
        return jobs::Find(transaction, id).attempt_count;
    }

    /// Why a store cannot be opened.
    static Error RefusalOf(const Place& place) {
        try {
            const Store store(place);
        } catch (const Error& error) {
            return error;
        }
        ADD_FAILURE() << "it was opened";
        return Error(Code::kInternal, "");
    }

    PostgresqlServer& server_ = PostgresqlServer::Shared();
};

// Behaviours of: Store

// Behaviour: Of several that open a new database of a server at once, one makes its tables and the others
//   wait for that
TEST_F(SharedDatabase, IsMadeByOneOfSeveral) {
    constexpr int kOpeners = 3;
    server_.Make("fresh");
    std::latch begin(kOpeners);
    std::vector<std::thread> openers;
    for (int i = 0; i < kOpeners; ++i) {
        openers.emplace_back([&] {
            begin.arrive_and_wait();
            Store store(server_.Url("fresh"), Sharing::kSeveral);
            AddJob(store);
        });
    }
    for (std::thread& opener : openers) opener.join();
    EXPECT_THAT(server_.Do("SELECT version FROM zelvek_version", "fresh"),
                ElementsAre(std::to_string(Migrations().size())));
    EXPECT_THAT(server_.Do("SELECT count(*) FROM job", "fresh"), ElementsAre(std::to_string(kOpeners)));
}

// Behaviour: A server's database of a newer version than the program's is refused, and stays as it is
TEST_F(SharedDatabase, OfANewerVersionIsRefused) {
    server_.Do("UPDATE zelvek_version SET version = 1000");
    const Error refusal = RefusalOf(server_.Url());
    EXPECT_EQ(refusal.code(), Code::kIo);
    EXPECT_THAT(refusal.what(), HasSubstr("its version 1000 is newer than this program's"));
    EXPECT_THAT(server_.Do("SELECT version FROM zelvek_version"), ElementsAre("1000"));
}

// Behaviour: A server's database with another program's tables is refused, and stays as it is
TEST_F(SharedDatabase, OfAnotherProgramIsRefused) {
    server_.Make("other");
    server_.Do("CREATE TABLE other (id INTEGER)", "other");
    const Error refusal = RefusalOf(server_.Url("other"));
    EXPECT_EQ(refusal.code(), Code::kIo);
    EXPECT_THAT(refusal.what(), HasSubstr("it is another program's database"));
    EXPECT_THAT(server_.Do("SELECT tablename FROM pg_tables WHERE schemaname = 'public'", "other"),
                ElementsAre("other"));
}

// Behaviour: Panels in schemas of their own share a server's database without meeting
TEST_F(SharedDatabase, HasSchemasApart) {
    server_.Make("apart");
    Store first(server_.Url("apart"));
    server_.Do("CREATE SCHEMA second", "apart");
    Store second(server_.Url("apart") + "&options=-csearch_path%3Dsecond");
    AddJob(first);
    EXPECT_EQ(AddJob(second), 1);
    EXPECT_EQ(AddJob(second), 2);
    EXPECT_THAT(server_.Do("SELECT count(*) FROM public.job", "apart"), ElementsAre("1"));
}

// Behaviour: A second service on a server's database is refused as long as the first one runs
TEST_F(SharedDatabase, HasOneServiceAtATime) {
    {
        const Store first(server_.Url());
        const Error refusal = RefusalOf(server_.Url());
        EXPECT_EQ(refusal.code(), Code::kBusy);
        EXPECT_THAT(refusal.what(), HasSubstr("it is in use by another service"));
    }
    Store(server_.Url());
}

// Behaviour: Several programs that change the same at once in a server's database lose nothing of each
// other's
TEST_F(SharedDatabase, LosesNothingOfSeveralWriters) {
    constexpr int kWriters = 4;
    constexpr int kRounds = 25;
    Store store(server_.Url(), Sharing::kSeveral);
    const int id = AddJob(store);
    std::vector<std::thread> writers;
    for (int i = 0; i < kWriters; ++i) {
        writers.emplace_back([&] {
            Store own(server_.Url(), Sharing::kSeveral);
            for (int round = 0; round < kRounds; ++round) Count(own, id);
        });
    }
    for (std::thread& writer : writers) writer.join();
    EXPECT_EQ(CountOf(store, id), kWriters * kRounds);
}

// Behaviour: A transaction that a foreign session's deadlock ends leaves nothing and is a passing failure;
// the
//   next one works
TEST_F(SharedDatabase, PassesOverADeadlock) {
    Store store(server_.Url());
    const int first = AddJob(store);
    const int second = AddJob(store);
    const PostgresqlServer::Session foreign = server_.Connect();
    const auto change = [](int id) {
        return "UPDATE job SET attempt_count = 7 WHERE id = " + std::to_string(id);
    };
    // It never looks for deadlocks itself, so that ours is the one that is ended.
    ::PQclear(::PQexec(foreign.get(), ("SET deadlock_timeout = '1h'; BEGIN; " + change(first)).c_str()));
    try {
        Transaction transaction(store);
        jobs::Save(transaction, jobs::Find(transaction, second));
        ASSERT_EQ(::PQsendQuery(foreign.get(), (change(second) + "; COMMIT").c_str()), 1);
        while (server_.Do("SELECT 1 FROM pg_locks WHERE NOT granted").empty()) continue;
        jobs::Save(transaction, jobs::Find(transaction, first));
        ADD_FAILURE() << "there was no deadlock";
    } catch (const Error& error) {
        EXPECT_EQ(error.code(), Code::kLater) << error.what();
    }
    while (PGresult* result = ::PQgetResult(foreign.get())) ::PQclear(result);
    EXPECT_EQ(CountOf(store, first), 7);
    Count(store, second);
    EXPECT_EQ(CountOf(store, second), 8);
}

}  // namespace

}  // namespace zelvek::testing
