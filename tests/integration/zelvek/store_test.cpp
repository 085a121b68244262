// The database file: what a restart keeps, which files are taken, and what becomes of older ones.
#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <unistd.h>

#include <fstream>

#include "service.h"
#include "zelvek/base/job.h"
#include "zelvek/base/process.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/migrations.h"
#include "zelvek/store/requests.h"
#include "zelvek/store/store.h"

namespace zelvek::testing {

namespace {

class StoreFile : public ServiceTest {
protected:
    int Version() { return SQLite::Database(Database().string()).execAndGet("PRAGMA user_version").getInt(); }
};

// Behaviours of: Start and store

// Behaviour: A restart keeps everything, after a crash too
TEST_F(StoreFile, ARestartKeepsEverything) {
    Start();
    Ask("func=zelvek.domain.add&name=shop.example&user_name=anna");
    const std::string id = AddJob();
    ReadJob(id);
    PublishAnswer();
    Write(id, {{"kid", "k"},
               {"acmekey", "KEY"},
               {"challenges", " c\r\n"},
               {"update_default_account", "on"},
               {"log", "2026-01-01 00:00:00,processing,e,d"}});
    Ask("func=problems.register&sok=ok&name=n&id=1&level=error&param_a=b");
    Ask("func=sslcert.csr.edit&domain=shop.example&su=anna&certname_ascii=x&key_type=ec");
    const std::string key = Ask("func=sslcert.csr.edit&out=xml&elid=x").value("csr_pk");
    for (const bool crash : {false, true}) {
        crash ? Kill() : Stop();
        Start();
        const auto record = Ask("func=ambrin.data.edit&elid=" + id + "&out=xml");
        EXPECT_EQ(record.value("challenges"), " c\r\n");
        EXPECT_EQ(record.value("acmekey"), "KEY");
        EXPECT_EQ(record.value("default_pem"), "KEY");
        EXPECT_EQ(Ask("func=zelvek.job.show&elid=" + id).xml().GetNode("/doc/event").Value("detail"), "d");
        EXPECT_EQ(Ask("func=zelvek.problem.list").xml().GetNode("/doc/elem/parameter").Value("value"), "b");
        EXPECT_EQ(Ask("func=domain&su=anna").xml().GetNode("/doc/elem").Value("name"), "shop.example");
        EXPECT_EQ(Ask("func=sslcert.csr.edit&out=xml&elid=x").value("csr_pk"), key);
    }
}

// Behaviour: The database is readable by its user alone
TEST_F(StoreFile, IsReadableByItsUserAlone) {
    Start();
    AddJob();
    for (const char* file : {"zelvek.db", "zelvek.db-wal", "zelvek.db-shm"}) {
        EXPECT_EQ(std::filesystem::status(Path(file)).permissions(), std::filesystem::perms{0600}) << file;
    }
}

// Behaviour: An older database is brought up to date, a newer one refused and left alone
TEST_F(StoreFile, OfAnOlderVersionIsBroughtUpToDate) {
    {
        SQLite::Database old(Database().string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
        old.exec(Migrations().front());
        old.exec(
            "INSERT INTO job (certname, domain, user_name, aliases, check_type, time_started, acmekey)"
            " VALUES ('shop.example', 'shop.example', 'anna', 'shop.example', 'http', '2026-01-01 00:00:00', "
            "'KEY');"
            "PRAGMA user_version = 1");
    }
    Start();
    EXPECT_EQ(Ask("func=ambrin.data.edit&elid=1&out=xml").value("acmekey"), "KEY");
    Write("1", {{"acmekey", "NEW"}});
    Stop();
    EXPECT_EQ(Version(), static_cast<int>(Migrations().size()));
}

// Behaviour: An older database is brought up to date ...
TEST_F(StoreFile, OfANewerVersionIsRefusedAndLeftAlone) {
    const int newer = static_cast<int>(Migrations().size()) + 1;
    Start();
    Stop();
    SQLite::Database(Database().string(), SQLite::OPEN_READWRITE)
        .exec("CREATE TABLE future (x); PRAGMA user_version = " + std::to_string(newer));
    const Ended ended = StartCommand(ServeCommand())->Wait();
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find("is newer than this program's"), std::string::npos) << ended.err;
    EXPECT_EQ(Version(), newer);
}

// Behaviour: A foreign writer of the database is waited for
TEST_F(StoreFile, AForeignWriterIsWaitedFor) {
    Start();
    const std::string id = AddJob();
    SQLite::Database foreign(Database().string(), SQLite::OPEN_READWRITE, 10000);
    foreign.exec("UPDATE job SET time_started = '2001-01-01 00:00:00' WHERE id = " + id);
    EXPECT_EQ(Ask("func=zelvek.job.show&elid=" + id).value("time_started"), "2001-01-01 00:00:00");
}

/// How many steps SQLite takes for something.
class Steps {
public:
    explicit Steps(SQLite::Database& database) : database_(database) {
        sqlite3_progress_handler(database.getHandle(), 1, &CountOne, &count_);
    }
    ~Steps() { sqlite3_progress_handler(database_.getHandle(), 0, nullptr, nullptr); }
    Steps(const Steps&) = delete;
    Steps& operator=(const Steps&) = delete;

    double count() const { return static_cast<double>(count_); }

private:
    static int CountOne(void* count) {
        ++*static_cast<long long*>(count);
        return 0;
    }

    SQLite::Database& database_;
    long long count_ = 0;
};

/// Makes a database of the version before with so many jobs, each with an account of its own.
void MakeDatabase(SQLite::Database& database, int jobs) {
    database.exec(Migrations()[0]);
    database.exec(Migrations()[1]);
    database.exec("PRAGMA user_version = 2");
    database.exec(
        "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(jobs) +
        ") INSERT INTO job (certname, domain, user_name, aliases, check_type, time_started, kid, acmekey, "
        "modulus) SELECT 'c', 'd', 'anna', 'd', 'http', 't', 'kid ' || i, 'key ' || i, 'modulus ' || i FROM "
        "n");
}

// Behaviour: Bringing a database up to date takes work in proportion to its jobs, each with an account of
//   its own
TEST_F(StoreFile, OfManyJobsIsBroughtUpToDateInProportion) {
    const auto steps = [](int jobs) {
        SQLite::Database database(":memory:", SQLite::OPEN_READWRITE);
        MakeDatabase(database, jobs);
        const Steps taken(database);
        // A column that the store itself adds before.
        database.exec("ALTER TABLE job ADD COLUMN failures INTEGER NOT NULL DEFAULT 0");
        for (std::size_t next = 2; next < Migrations().size(); ++next) database.exec(Migrations()[next]);
        return taken.count();
    };
    EXPECT_LT(steps(2000), 5 * steps(500));
}

// Behaviour: Bringing a database up to date ...
TEST_F(StoreFile, OfManyJobsHasTheirAccounts) {
    constexpr int kJobs = 3000;
    SQLite::Database database(Database().string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
    MakeDatabase(database, kJobs);
    const Store store(Database());
    const std::string own =
        "SELECT count(*) FROM job JOIN account ON account.id = job.account WHERE kid = 'kid ' || job.id AND"
        " acmekey = 'key ' || job.id AND modulus = 'modulus ' || job.id";
    EXPECT_EQ(database.execAndGet(own).getInt(), kJobs);
    EXPECT_EQ(database.execAndGet("SELECT count(*) FROM account").getInt(), kJobs);
}

}  // namespace

}  // namespace zelvek::testing
