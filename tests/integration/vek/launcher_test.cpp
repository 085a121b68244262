// The launcher, and how a run ends: a real plug-in as a process of its own.
#include "integration/vek/plugin_test.h"

namespace {

using namespace vek_test;

using Launcher = Plugin;

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

}  // namespace
