// What is left on the disk of keys that are not needed any more.
#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <unistd.h>

#include "count.h"
#include "service.h"
#include "zelvek/base/process.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/requests.h"
#include "zelvek/store/store.h"

namespace zelvek::testing {

namespace {

/// A database with keys in it, and what can be read of them on the disk.
class DeletedKeys : public ServiceTest {
protected:
    static void AddKeys(Store& store, const Process& maker) {
        Transaction transaction(store);
        Job job;
        job.id = jobs::Add(transaction, job);
        job.acmekey = "THE ACCOUNT'S KEY";
        jobs::Save(transaction, job);
        requests::Put(transaction, "name", maker, {"request", "THE REQUEST'S KEY"}, "t");
        transaction.Commit();
    }

    static void RemoveKeys(Store& store, const Process& maker) {
        Transaction transaction(store);
        for (const int id : {1, 2}) jobs::Remove(transaction, id);
        requests::Remove(transaction, "name", maker);
        transaction.Commit();
    }

    /// How often a key is to be read in the database and in the files beside it.
    int KeysOnDisk() const {
        int count = 0;
        for (const std::string end : {"", "-wal", "-shm", "-journal"}) {
            const std::string bytes = ReadFile(Database().string() + end);
            count += Count(bytes, "THE ACCOUNT'S KEY") + Count(bytes, "THE REQUEST'S KEY");
        }
        return count;
    }

    const Process self_ = FindProcess(::getpid()).value();
};

// Behaviours of: Start and store

// Behaviour: No byte of a deleted key is left in the database's files
TEST_F(DeletedKeys, AreNowhereInTheFiles) {
    Store store(Database());
    AddKeys(store, self_);
    store.Tidy();
    EXPECT_EQ(KeysOnDisk(), 2);
    RemoveKeys(store, self_);
    EXPECT_GE(KeysOnDisk(), 2) << "the log has them";
    store.Tidy();
    EXPECT_EQ(KeysOnDisk(), 0);
    AddKeys(store, self_);
    EXPECT_GE(KeysOnDisk(), 2) << "it is written again";
}

// Behaviour: No byte of a deleted key is left ...
TEST_F(DeletedKeys, AreNowhereAtTheEnd) {
    // A connection of somebody else keeps the engine from emptying its log by itself.
    SQLite::Database other(Database().string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, 10000);
    {
        Store store(Database());
        other.execAndGet("SELECT count(*) FROM job");
        AddKeys(store, self_);
        RemoveKeys(store, self_);
        EXPECT_GE(KeysOnDisk(), 2);
    }
    EXPECT_EQ(KeysOnDisk(), 0);
}

// Behaviour: No byte of a deleted key is left ...
TEST_F(DeletedKeys, AreNowhereSoonAfterTheReaderOfTheDatabase) {
    Store store(Database());
    AddKeys(store, self_);
    SQLite::Database other(Database().string(), SQLite::OPEN_READWRITE, 10000);
    other.exec("BEGIN; SELECT count(*) FROM job");
    RemoveKeys(store, self_);
    store.Tidy();
    EXPECT_GE(KeysOnDisk(), 1) << "somebody reads the state before";
    AddKeys(store, self_);  // and nobody waits for them
    other.exec("COMMIT");
    RemoveKeys(store, self_);
    store.Tidy();
    EXPECT_EQ(KeysOnDisk(), 0);
}

// Behaviour: No byte of a deleted key is left ...
TEST_F(DeletedKeys, AreNowhereSoonAfterTheServiceHasDeletedThem) {
    Start();
    const std::string id = AddJob();
    ReadJob(id);
    Write(id, {{"kid", "k"}, {"acmekey", "THE ACCOUNT'S KEY"}});
    EXPECT_GE(KeysOnDisk(), 1);
    Ask("func=zelvek.job.remove&elid=" + id);
    EXPECT_TRUE(Eventually([&] { return KeysOnDisk() == 0; }));
}

// Behaviour: No byte of a deleted key is left ...
TEST_F(DeletedKeys, OfAKilledServiceAreNowhereAfterTheNextStart) {
    Start({{"--sweep-interval", "86400"}});
    const std::string id = AddJob();
    ReadJob(id);
    Write(id, {{"kid", "k"}, {"acmekey", "THE ACCOUNT'S KEY"}});
    Ask("func=zelvek.job.remove&elid=" + id);
    Kill();
    EXPECT_GE(KeysOnDisk(), 1);
    Start();
    EXPECT_TRUE(Eventually([&] { return KeysOnDisk() == 0; }));
}

}  // namespace

}  // namespace zelvek::testing
