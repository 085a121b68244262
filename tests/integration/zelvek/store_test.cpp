// The database file: what a restart keeps, and which files are taken.
#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

#include "service.h"
#include "zelvek/store/migrations.h"

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
    SQLite::Database(Database().string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
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

}  // namespace

}  // namespace zelvek::testing
