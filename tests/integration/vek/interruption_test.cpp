// How a run is ended from outside: a real plug-in as a process of its own.
#include "integration/vek/plugin_test.h"

namespace {

using namespace vek_test;

using Interruption = Plugin;

// Behaviours of: Launcher and interruption

// Behaviour: A service that is away while the record is stored is waited for, though the run has been asked
// to
//   end; when it is asked once more by the same signal, it ends
TEST_F(Interruption, LeavesTheRunTimeToStoreItsRecord) {
    Start("sleep, then store");
    ASSERT_TRUE(IsReady());
    std::this_thread::sleep_for(milliseconds(300));
    kill(pid, SIGTERM);
    ASSERT_TRUE(Comes([this] { return TextOf(err).find("ended by") != std::string::npos; }));
    kill(pid, SIGINT);  // from the terminal, say: another one
    std::this_thread::sleep_for(seconds(6));
    StartService();
    EXPECT_EQ(End(), 128 + SIGTERM);
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack + std::string("&sok=ok")));
}

// Behaviour: A service that is away while the record ...
TEST_F(Interruption, EndsTheWaitForTheServiceWhenItComesOnceMore) {
    Start("sleep, then store");
    ASSERT_TRUE(IsReady());
    std::this_thread::sleep_for(milliseconds(300));
    kill(pid, SIGTERM);
    ASSERT_TRUE(Comes([this] { return TextOf(err).find("ended by") != std::string::npos; }));
    kill(pid, SIGTERM);
    EXPECT_EQ(End(), 1000 + SIGABRT);
    EXPECT_THAT(TextOf(err), HasSubstr(folder.file("zelvek.sock") + ": No such file or directory"));
}

// Behaviour: SIGTERM and SIGINT end a sleep of any length at once, with the status 128 and the signal's
//   number; the record is still written back
// Behaviour: A sleep takes its time, the longest that ...
TEST_F(Interruption, EndsASleepOfAnyLength) {
    StartService();
    Start("sleep");
    ASSERT_TRUE(IsReady());
    EXPECT_EQ(EndBy(SIGTERM), 128 + SIGTERM);
    EXPECT_EQ(TextOf(err), "vek_test_plugin: ended by Terminated\n");
    EXPECT_THAT(Log(), HasSubstr("ended by Terminated\n"));
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack));
}

// Behaviour: SIGTERM and SIGINT end a sleep of any length ...
TEST_F(Interruption, ReachesTheThreadThatWaitsWhicheverGotTheSignal) {
    StartService();
    Start("sleep deaf");
    ASSERT_TRUE(IsReady());
    EXPECT_EQ(EndBy(SIGTERM), 128 + SIGTERM);
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack));
}

// Behaviour: Every later wait is interrupted too, but ...
TEST_F(Interruption, BreaksOffNoCallOfTheSystems) {
    StartService();
    Start("read on");
    EXPECT_EQ(End(), 0);
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack + std::string("read")));
}

// Behaviour: SIGTERM and SIGINT end a sleep of any length ...
TEST_F(Interruption, ComesFromTheKeyboardToo) {
    StartService();
    Start("sleep");
    ASSERT_TRUE(IsReady());
    EXPECT_EQ(EndBy(SIGINT), 128 + SIGINT);
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack));
}

// Behaviour: They end a child process with everything that it has started
TEST_F(Interruption, EndsAChildWithEverythingItStarted) {
    StartService();
    const std::string pids = folder.file("pids");
    Start("child", "sleep 600 & echo $$ $! >" + pids + "; wait");
    ASSERT_TRUE(Comes([&] { return TextOf(pids).ends_with("\n"); }));
    EXPECT_EQ(EndBy(SIGTERM), 128 + SIGTERM);
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack));
    for (const auto& child : str::Split(TextOf(pids), " ")) {
        EXPECT_TRUE(Comes([&] {
            const std::string stat = TextOf("/proc/" + child + "/stat");
            return stat.empty() || stat.find(") Z") != std::string::npos;
        })) << child;
    }
}

// Behaviour: The child has ended and is reaped when the interruption reaches the caller
TEST_F(Interruption, EndsAndReapsAChildBeforeItsObjectGoes) {
    StartService();
    const std::string pids = folder.file("pids");
    Start("child kept", "echo $$ >" + pids + "; sleep 600");
    ASSERT_TRUE(Comes([&] { return TextOf(pids).ends_with("\n"); }));
    EXPECT_EQ(EndBy(SIGTERM), 0);
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack + std::string("reaped")));
}

// Behaviour: They end an exchange, a handshake, and a connection that is being made
TEST_F(Interruption, EndsAnExchange) {
    StartService();
    const Server silent([](Connection& connection) { connection.AwaitEnd(); });
    Start("get", silent.url());
    ASSERT_TRUE(Comes([&] { return silent.connections() == 1; }));
    EXPECT_EQ(EndBy(SIGTERM), 128 + SIGTERM);
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack));
}

// Behaviour: They end an exchange, a handshake, and a ...
TEST_F(Interruption, EndsAHandshake) {
    StartService();
    const Server silent([](Connection& connection) { connection.AwaitEnd(); });
    Start("get", "https://127.0.0.1:" + std::to_string(silent.port()) + "/");
    ASSERT_TRUE(Comes([&] { return silent.connections() == 1; }));
    EXPECT_EQ(EndBy(SIGTERM), 128 + SIGTERM);
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack));
}

// Behaviour: They end an exchange, a handshake, and a ...
// A listener whose queue is full leaves further connections without an answer.
TEST_F(Interruption, EndsAConnectionThatIsBeingMade) {
    StartService();
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(bind(listener, generic, size), 0);
    ASSERT_EQ(listen(listener, 0), 0);
    ASSERT_EQ(getsockname(listener, generic, &size), 0);
    std::vector<int> callers;
    for (int i = 0; i < 4; ++i) {
        callers.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        EXPECT_TRUE(connect(callers.back(), generic, size) == 0 || errno == EINPROGRESS);
    }
    Start("get", "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/");
    ASSERT_TRUE(IsReady());
    EXPECT_EQ(EndBy(SIGTERM), 128 + SIGTERM);
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack));
    for (const int fd : callers) close(fd);
    close(listener);
}

// Behaviour: Every later wait is interrupted too, but no panel query
// Behaviour: An interruption is no std::exception, so that nothing takes it for a failed exchange
TEST_F(Interruption, HoldsForEveryLaterWaitButForNoQuery) {
    StartService();
    Start("again");
    ASSERT_TRUE(IsReady());
    EXPECT_EQ(EndBy(SIGTERM), 0);
    EXPECT_THAT(Queries(), ElementsAre("func=after", kWrittenBack + std::string("all")));
}

// Behaviour: A panel query that is under way goes on
TEST_F(Interruption, LetsAQueryThatIsUnderWayGoOn) {
    std::atomic<bool> asked = false;
    std::atomic<bool> may_answer = false;
    const vek_test::Service slow(folder.path(), "zelvek", [&](const std::string&) {
        asked = true;
        return Comes([&] { return may_answer.load(); }) ? "<doc/>" : "";
    });
    Start("return", "0");
    ASSERT_TRUE(Comes([&] { return asked.load(); }));
    EXPECT_EQ(kill(pid, SIGTERM), 0);
    std::this_thread::sleep_for(milliseconds(300));
    may_answer = true;
    EXPECT_EQ(End(), 0);
}

}  // namespace
