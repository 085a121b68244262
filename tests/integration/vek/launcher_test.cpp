// The launcher, and how a run ends: a real plug-in as a process of its own.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <optional>
#include <sstream>

#include "integration/vek/certificate.h"
#include "integration/vek/server.h"
#include "vek/str.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;
using vek_test::Connection;
using vek_test::Server;

constexpr seconds kSoon{60};  // for what takes no time on an idle machine

std::string TextOf(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

template <class Condition>
bool Comes(Condition condition) {
    const auto end = steady_clock::now() + kSoon;
    while (!condition()) {
        if (steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(milliseconds(10));
    }
    return true;
}

class Plugin : public testing::Test {
protected:
    void StartService() {
        service = std::make_unique<vek_test::Service>(folder.path(), "zelvek",
                                                      [](const std::string&) { return "<doc/>"; });
    }

    // Starts the plug-in; `prepare` runs in the new process.
    void Start(
        const std::string& what, const std::optional<std::string>& value = "", void (*prepare)() = [] {}) {
        pid = fork();
        if (pid != 0) return;
        dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
        dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
        prepare();
        execl(VEK_TEST_PLUGIN, "vek_test_plugin", what.c_str(), value ? value->c_str() : nullptr, nullptr);
        _exit(99);
    }

    bool IsReady() const {
        return Comes([this] { return TextOf(out) == "ready\n"; });
    }

    // Its exit status; 1000 and more for the signal that ended it.
    int End() {
        int status = 0;
        const bool ended = Comes([&] { return waitpid(pid, &status, WNOHANG) == pid; });
        if (!ended) {
            ADD_FAILURE() << "the plug-in does not end";
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
        }
        return WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
    }

    // Its exit status after this signal, which it gets when it is in the middle of its wait.
    int EndBy(int number) {
        std::this_thread::sleep_for(milliseconds(300));
        EXPECT_EQ(kill(pid, 0), 0);
        EXPECT_EQ(kill(pid, number), 0);
        return End();
    }

    std::vector<std::string> Queries() const {
        std::vector<std::string> queries;
        for (const auto& request : service->requests()) queries.push_back(request.body);
        return queries;
    }

    std::string Log() const { return TextOf(folder.file("plugin.log")); }

    vek_test::TempFolder folder;
    vek_test::Variable run_dir{"VEK_RUN_DIR", folder.path()};
    vek_test::Variable log_dir{"VEK_LOG_DIR", folder.path()};
    std::string out = folder.file("out");
    std::string err = folder.file("err");
    std::unique_ptr<vek_test::Service> service;
    pid_t pid = 0;
};

using Launcher = Plugin;
using Interruption = Plugin;

constexpr char kWrittenBack[] = "func=write_back&detail=";

// Behaviours of: Launcher and interruption

// Behaviour: The plug-in's status is the process's, and static objects are destroyed after it
TEST_F(Launcher, GivesThePluginsStatus) {
    StartService();
    for (const int status : {0, 1, 77}) {
        Start("return", std::to_string(status));
        EXPECT_EQ(End(), status);
    }
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack, kWrittenBack, kWrittenBack));
    EXPECT_EQ(TextOf(err), "");
    EXPECT_THAT(Log(), HasSubstr("TRACE plugin.record written back\n"));
}

// Behaviour: An exception that leaves the plug-in goes to standard error and the log, the status is 2, static
//   objects are destroyed
TEST_F(Launcher, ReportsAnExceptionAndDestroysStaticObjects) {
    StartService();
    Start("exception", "the reason");
    EXPECT_EQ(End(), 2);
    EXPECT_EQ(TextOf(err), "vek_test_plugin: the reason\n");
    EXPECT_THAT(Log(), HasSubstr(" ERROR vek.launcher the reason\n"));
    EXPECT_THAT(Log(), testing::EndsWith("written back\n"));
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack));
}

// Behaviour: An exception that leaves the plug-in goes ...
TEST_F(Launcher, ReportsAnExceptionOfAnUnknownType) {
    StartService();
    Start("odd");
    EXPECT_EQ(End(), 2);
    EXPECT_EQ(TextOf(err), "vek_test_plugin: an exception of an unknown type\n");
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack));
}

// Behaviour: An end without an exception is reported as "terminated"
TEST_F(Launcher, ReportsAnEndWithoutAnException) {
    Start("terminate");
    EXPECT_EQ(End(), 1000 + SIGABRT);
    EXPECT_EQ(TextOf(err), "vek_test_plugin: terminated\n");
    EXPECT_THAT(Log(), testing::EndsWith(" ERROR vek.launcher terminated\n"));
}

// Behaviour: A plug-in whose signals cannot be watched does not start
TEST_F(Launcher, DoesNotStartWhereSignalsCannotBeWatched) {
    StartService();
    Start("return", "0", [] { setenv("VEK_TEST_NO_PIPE", "on", 1); });
    EXPECT_EQ(End(), 2);
    EXPECT_EQ(TextOf(err), "vek_test_plugin: launcher: start: no pipe for signals\n");
    EXPECT_EQ(TextOf(out), "");
}

// Behaviour: A record that cannot be written back ends the process by SIGABRT, with the reason on standard
//   error and in the log
// Behaviour: A write-back that fails ends the process ...
TEST_F(Launcher, EndsByAbortWhereTheRecordCannotBeWrittenBack) {
    Start("return", "0");
    EXPECT_EQ(End(), 1000 + SIGABRT);
    const std::string reason =
        "client: connect: " + folder.file("zelvek.sock") + ": No such file or directory\n";
    EXPECT_EQ(TextOf(err), "vek_test_plugin: " + reason);
    EXPECT_THAT(Log(), HasSubstr(" ERROR vek.launcher " + reason));
}

// Behaviour: A run that waits for its service in vain ends within seconds, by SIGABRT, and tells once which
//   socket it tried
TEST_F(Launcher, TellsOnceWhichSocketItTriedInVain) {
    const auto begun = steady_clock::now();
    Start("read, then store");
    EXPECT_EQ(End(), 1000 + SIGABRT);
    EXPECT_GE(steady_clock::now() - begun, seconds(5));
    EXPECT_EQ(TextOf(err), "vek_test_plugin: client: connect: " + folder.file("zelvek.sock") +
                               ": No such file or directory\n");
}

// Behaviour: A plug-in that refuses its arguments ends at once where no service is there, with its status and
//   its usage on standard error; a service hears of it as of every other run
TEST_F(Launcher, ExplainsItsUsageWhereNobodyIsThere) {
    const auto begun = steady_clock::now();
    Start("return, store", "7");
    EXPECT_EQ(End(), 7);
    EXPECT_LT(steady_clock::now() - begun, seconds(5));
    EXPECT_EQ(TextOf(err),
              "usage: vek_test_plugin WHAT [VALUE]\n       vek_test_plugin --help | --version\n");
    StartService();
    Start("return, store", "7");
    EXPECT_EQ(End(), 7);
    EXPECT_EQ(TextOf(err), "");
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack + std::string("&sok=ok")));
}

// Behaviour: "--help" and "--version" of a plug-in are answered by the launcher with status 0, without a
//   service, and nothing is written back
TEST_F(Launcher, AnswersQuestionsAboutThePluginItself) {
    StartService();
    Start("--version", std::nullopt);
    EXPECT_EQ(End(), 0);
    EXPECT_EQ(TextOf(out), "vek_test_plugin 7.8.9\n");
    Start("--help", std::nullopt);
    EXPECT_EQ(End(), 0);
    EXPECT_EQ(TextOf(out),
              "usage: vek_test_plugin WHAT [VALUE]\n       vek_test_plugin --help | --version\n"
              "Does what its arguments say.\n");
    EXPECT_EQ(TextOf(err), "");
    EXPECT_THAT(Queries(), testing::IsEmpty());
}

// Behaviour: An answer to "--help" or "--version" that cannot be written is no success
TEST_F(Launcher, AnswersNothingWhereNothingCanBeWritten) {
    Start("--version", std::nullopt, [] { dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO); });
    EXPECT_EQ(End(), 2);
}

// Behaviour: "--help" beside other arguments goes to the plug-in, as every other argument does
TEST_F(Launcher, LeavesOtherArgumentsToThePlugin) {
    StartService();
    for (const char* first : {"--help", "--version", "--helpful", "-h"}) {
        Start(first, "x");
        EXPECT_EQ(End(), 0);
        EXPECT_EQ(TextOf(out), "ready\n") << first;
    }
    EXPECT_THAT(Queries(), testing::SizeIs(4));
}

// Behaviour: A service that restarts while the record is written back is waited for
TEST_F(Launcher, WaitsForAServiceThatRestartsAtTheWriteBack) {
    Start("return", "0");
    EXPECT_TRUE(IsReady());
    std::this_thread::sleep_for(milliseconds(500));
    StartService();
    EXPECT_EQ(End(), 0);
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack));
}

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

// Behaviour: Exchanges, keys and queries still work while static objects are destroyed
TEST_F(Launcher, KeepsEverythingUsableForStaticObjects) {
    StartService();
    const vek_test::Authority authority("Root");
    std::ofstream(folder.file("roots.pem")) << authority.Pem();
    const vek_test::Variable roots("VEK_CA_FILE", folder.file("roots.pem"));
    const auto context = authority.MakeContext({});
    const auto serve = [](Connection& connection) {
        connection.ReadRequest();
        connection.Write(vek_test::Answer(200, "", "late"));
    };
    const Server server(serve, context.get());
    Start("early and late", server.url());
    EXPECT_EQ(End(), 0);
    EXPECT_EQ(TextOf(err), "");
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack + std::string("late256")));
}

// Behaviour: A broken pipe ends no plug-in
TEST_F(Launcher, IgnoresSigpipe) {
    StartService();
    Start("sigpipe");
    EXPECT_EQ(End(), 0);
}

// Behaviour: Standard descriptors that are closed are opened
TEST_F(Launcher, OpensStandardDescriptorsThatAreClosed) {
    StartService();
    Start("descriptors", "", [] {
        for (const int fd : {0, 1, 2}) close(fd);
    });
    EXPECT_EQ(End(), 0);
    Start("child", "echo output", [] {
        for (const int fd : {0, 1, 2}) close(fd);
    });
    EXPECT_EQ(End(), 0);
    EXPECT_THAT(Queries(),
                ElementsAre(kWrittenBack + std::string("%2Fdev%2Fnull%20%2Fdev%2Fnull%20%2Fdev%2Fnull%20"),
                            kWrittenBack + std::string("output%0A")));
}

// Behaviour: A plug-in leaves no core file, whatever ends it and whatever limit it was started with, nor do
// the
//   tools that it runs
TEST_F(Launcher, LeavesNoCoreFile) {
    const auto with_cores = [] {
        const rlimit any{RLIM_INFINITY, RLIM_INFINITY};
        if (setrlimit(RLIMIT_CORE, &any) != 0) {
            rlimit most{};
            getrlimit(RLIMIT_CORE, &most);
            most.rlim_cur = most.rlim_max;
            setrlimit(RLIMIT_CORE, &most);
        }
    };
    Start("terminate", "", with_cores);
    siginfo_t end{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &end, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(end.si_code, CLD_KILLED) << "not CLD_DUMPED";
    EXPECT_EQ(End(), 1000 + SIGABRT);

    StartService();
    Start("core", "", with_cores);
    EXPECT_EQ(End(), 0);
    EXPECT_THAT(Queries(), ElementsAre(kWrittenBack + std::string("none%200%0A0%0A")));
}

// Behaviour: Signals that the starting process ignored or blocked are minded all the same
TEST_F(Launcher, MindsNoSignalsThatWhoeverStartedItIgnoredOrBlocked) {
    StartService();
    Start("child", "exit 0", [] { signal(SIGCHLD, SIG_IGN); });
    EXPECT_EQ(End(), 0);
    Start("sleep", "", [] {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_BLOCK, &all, nullptr);
        signal(SIGTERM, SIG_IGN);
    });
    EXPECT_TRUE(IsReady());
    EXPECT_EQ(EndBy(SIGTERM), 128 + SIGTERM);
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
