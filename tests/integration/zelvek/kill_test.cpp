// The service killed again and again while several callers write.
#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>

#include "service.h"

namespace zelvek::testing {

namespace {

constexpr int kKills = 100;
constexpr int kWriters = 4;

/// What one caller has sent, and what of it was acknowledged.
struct Written {
    std::string job;
    std::set<std::string> sent;
    std::set<std::string> acknowledged;
    int last_count = 0;  // of the write-backs
};

class KilledService : public ServiceTest {
protected:
    /// Sends one change after the other until the end: a domain, and a write-back with an event.
    void Write(Written& written, const std::atomic<bool>& end) {
        for (int number = 1; !end; ++number) {
            const std::string name = "d" + std::to_string(number) + "-" + written.job + ".example";
            written.sent.insert(name);
            if (ErrorOf("func=zelvek.domain.add", {{"name", name}, {"user_name", "bob"}}) == "")
                written.acknowledged.insert(name);
            const std::string error =
                ErrorOf("func=ambrin.data.edit&sok=ok",
                        WriteBack(written.job, {{"attempt_count", std::to_string(number)},
                                                {"log", "2026-01-01 00:00:00,processing," + name + ",x"},
                                                {"processing", "on"}}));
            ASSERT_EQ(error, "") << "a write-back is tried until it is taken";
            written.last_count = number;
        }
    }

    static std::string Text(SQLite::Database& database, const std::string& select) {
        return database.execAndGet(select).getString();
    }
};

// Behaviours of: Start and store

// Behaviour: A service that is killed a hundred times under load loses nothing that it has acknowledged, does
//   nothing twice, and its database stays whole
TEST_F(KilledService, KeepsWhatItHasAcknowledged) {
    Start();
    std::vector<Written> written(kWriters);
    for (int i = 0; i < kWriters; ++i) {
        written[i].job = AddJob({{"certname", "c" + std::to_string(i)}});
        ReadJob(written[i].job);
    }
    std::atomic<bool> end{false};
    std::vector<std::thread> writers;
    for (Written& one : written) writers.emplace_back([&] { Write(one, end); });
    for (int kill = 0; kill < kKills; ++kill) {
        std::this_thread::sleep_for(std::chrono::milliseconds(kill % 17));
        Kill();
        Start();
    }
    end = true;
    for (std::thread& writer : writers) writer.join();
    Stop();

    SQLite::Database database(Database().string());
    EXPECT_EQ(Text(database, "PRAGMA integrity_check"), "ok");
    EXPECT_EQ(Text(database, "SELECT count(*) FROM pragma_foreign_key_check"), "0");
    for (const Written& one : written) {
        EXPECT_GT(one.last_count, 0);
        EXPECT_EQ(Text(database, "SELECT attempt_count FROM job WHERE id = " + one.job),
                  std::to_string(one.last_count));
        EXPECT_EQ(Text(database, "SELECT count(*) FROM job_event WHERE job = " + one.job),
                  std::to_string(one.last_count));
        EXPECT_EQ(Text(database, "SELECT count(DISTINCT event) FROM job_event WHERE job = " + one.job),
                  std::to_string(one.last_count));
        std::set<std::string> kept;
        SQLite::Statement select(database, "SELECT name FROM domain WHERE name LIKE '%-' || ? || '.example'");
        select.bind(1, one.job);
        while (select.executeStep()) kept.insert(select.getColumn(0).getString());
        for (const std::string& name : one.acknowledged) EXPECT_TRUE(kept.contains(name)) << name;
        for (const std::string& name : kept) EXPECT_TRUE(one.sent.contains(name)) << name;
    }
}

}  // namespace

}  // namespace zelvek::testing
