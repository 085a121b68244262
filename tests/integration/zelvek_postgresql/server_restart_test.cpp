// A service whose database's server is started anew.
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "../zelvek/service.h"
#include "server.h"

namespace zelvek::testing {

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class ServerRestart : public ServiceTest {
protected:
    ServerRestart() {
        server_.Renew();
        Start({{"--database", server_.Url()}});
    }

    std::string Count(const std::string& table) const {
        return server_.Do("SELECT count(*) FROM " + table).at(0);
    }

    static constexpr const char* kStatus = "func=zelvek.status";
    PostgresqlServer& server_ = PostgresqlServer::Shared();
};

// Behaviours of: Start and store

// Behaviour: While the database's server is away, queries are told that they may be asked again; a run's
//   write-back waits for the server, and is carried out once
TEST_F(ServerRestart, LosesNoWriteBack) {
    const std::string id = AddJob();
    ReadJob(id);
    server_.Stop();
    const std::string answer = Raw(Request("POST /", kStatus));
    EXPECT_THAT(answer, HasSubstr("503"));
    EXPECT_THAT(answer, HasSubstr("type=\"later\""));
    std::thread run([&] { Write(id, {{"log", "1"}}); });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    server_.Start();
    run.join();
    EXPECT_EQ(server_.Do("SELECT processing FROM job").at(0), "0");
    EXPECT_EQ(server_.Do("SELECT count(*) FROM answered_query WHERE answer NOT LIKE '%<id>%'").at(0), "1");
    EXPECT_TRUE(service().Running());
    EXPECT_EQ(ErrorOf(kStatus), "");
    Stop();
}

// Behaviour: A service that begins before its database's server waits for it
TEST_F(ServerRestart, IsWaitedForAtTheStart) {
    Stop();
    server_.Stop();
    const auto waiting = StartCommand(ServeCommand({{"--database", server_.Url()}}));
    EXPECT_TRUE(Eventually([&] { return waiting->Err().find("it cannot be reached") != std::string::npos; }));
    EXPECT_EQ(waiting->Out(), "");
    server_.Start();
    EXPECT_TRUE(Eventually([&] { return waiting->Out() == "zelvek: ready\n"; }));
    waiting->Signal(SIGTERM);
    EXPECT_EQ(waiting->Wait().status, 0);
}

// Behaviour: A service whose engine is not installed says which package brings it
TEST_F(ServerRestart, NeedsItsPackage) {
    Stop();
    std::filesystem::copy_file(ZELVEK_BINARY, Path("zelvek"));
    std::ofstream(Path("z.conf")) << "database=" << server_.Url() << "\n";
    const Ended ended = StartCommand({Path("zelvek"), "config", "check", "--config", Path("z.conf")})->Wait();
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.err, HasSubstr("this needs the package zelvek-postgresql, which is not installed"));
}

// Behaviour: What is asked once is done once, however often the database's server is started anew meanwhile
TEST_F(ServerRestart, DoesNothingTwice) {
    constexpr int kJobs = 45;
    std::atomic<int> added = 0;
    std::thread asking([&] {
        for (int i = 0; i < kJobs; ++i) {
            // What stores something is asked for long.
            Ask("func=zelvek.job.add&sok=ok", {{"domain", "site" + std::to_string(i) + ".example"},
                                               {"user_name", "anna"},
                                               {"foreign_names", "on"}});
            ++added;
        }
    });
    for (int restarts = 1; restarts <= 2; ++restarts) {
        while (added < restarts * kJobs / 3) std::this_thread::yield();
        server_.Stop();
        server_.Start();
    }
    asking.join();
    EXPECT_EQ(Count("job"), std::to_string(kJobs));
    EXPECT_EQ(server_.Do("SELECT sum(jobs) FROM job_count").at(0), std::to_string(kJobs));
    Stop();
}

// Behaviour: Status and doctor name a server's database without its URL's parameters
TEST_F(ServerRestart, IsNamedWithoutParameters) {
    std::ofstream(Path("z.conf")) << "database=" << server_.Url() << "\ncerts-dir=" << Path("certs").string()
                                  << "\nplugin=" << TEST_PLUGIN << "\npublic-resolvers=off\n";
    const std::string status = Zelvek({"status"}).out;
    EXPECT_THAT(status, HasSubstr("postgresql://zelvek@/store\n"));
    EXPECT_THAT(Zelvek({"config", "check", "--config", Path("z.conf")}).out,
                HasSubstr("can use these options"));
    const std::string doctor = Zelvek({"doctor", "--config", Path("z.conf")}).out;
    EXPECT_THAT(doctor, HasSubstr("postgresql://zelvek@/store: PostgreSQL 15."));
    EXPECT_THAT(status + doctor, Not(HasSubstr("host=")));
}

}  // namespace

}  // namespace zelvek::testing
