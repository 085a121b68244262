// A server's database whose connection is lost.
#include <chrono>
#include <thread>

#include "../zelvek_store/engine.h"
#include "proxy.h"
#include "server.h"
#include "zelvek/base/error.h"
#include "zelvek/store/jobs.h"

namespace zelvek::testing {

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class LostConnection : public ::testing::Test {
protected:
    LostConnection() { server_.Renew(); }

    static void AddJob(Store& store) {
        Transaction transaction(store);
        jobs::Add(transaction, FilledJob("a"));
        transaction.Commit();
    }

    static bool Succeeds(Store& store) try {
        AddJob(store);
        return true;
    } catch (const Error& error) {
        EXPECT_EQ(error.code(), Code::kLater) << error.what();
        return false;
    }

    std::vector<std::string> Jobs() const { return server_.Do("SELECT count(*) FROM job"); }

    PostgresqlServer& server_ = PostgresqlServer::Shared();
};

// Behaviours of: Store

// Behaviour: A server that was started anew while nobody used its database is not noticed
TEST_F(LostConnection, IsMadeAgainAtTheNextTransaction) {
    Store store(server_.Url());
    AddJob(store);
    server_.Stop();
    server_.Start();
    AddJob(store);
    EXPECT_THAT(Jobs(), ElementsAre("2"));
}

// Behaviour: While a database's server is away, every transaction is a passing failure at once; the store
//   works again by itself when the server is back
TEST_F(LostConnection, IsAPassingFailure) {
    Store store(server_.Url());
    server_.Stop();
    for (int i = 0; i < 10; ++i) EXPECT_FALSE(Succeeds(store));
    server_.Start();
    int failures = 0;
    for (; !Succeeds(store); ++failures) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_LT(failures, 1000);
    EXPECT_THAT(Jobs(), ElementsAre("1"));
}

// Behaviour: A transaction in which the connection to the server is lost leaves nothing, and the next one
//   works
TEST_F(LostConnection, InATransactionLeavesNothing) {
    Store store(server_.Url());
    try {
        Transaction transaction(store);
        jobs::Add(transaction, FilledJob("a"));
        server_.Do(
            "SELECT pg_terminate_backend(pid, 1000) FROM pg_stat_activity WHERE state = 'idle in "
            "transaction'");
        jobs::Add(transaction, FilledJob("b"));
        ADD_FAILURE() << "nothing was lost";
    } catch (const Error& error) {
        EXPECT_EQ(error.code(), Code::kLater) << error.what();
    }
    EXPECT_THAT(Jobs(), ElementsAre("0"));
    AddJob(store);
    EXPECT_THAT(Jobs(), ElementsAre("1"));
}

// Behaviour: A commit whose answer is lost counts as what it was: the server is asked
TEST_F(LostConnection, InACommitIsLookedInto) {
    Proxy proxy(server_.folder());
    Store store("postgresql://zelvek@/store?host=" + proxy.folder().string());
    proxy.LoseCommit(true);
    EXPECT_TRUE(Succeeds(store));
    EXPECT_THAT(Jobs(), ElementsAre("1"));
    proxy.LoseCommit(false);
    EXPECT_FALSE(Succeeds(store));
    EXPECT_THAT(Jobs(), ElementsAre("1"));
    EXPECT_TRUE(Succeeds(store));
    EXPECT_THAT(Jobs(), ElementsAre("2"));
}

}  // namespace

}  // namespace zelvek::testing
