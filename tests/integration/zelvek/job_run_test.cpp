// A run that somebody starts at the command line, and looks on.
#include <csignal>

#include "command_line.h"

namespace zelvek::testing {

namespace {

// Behaviours of: Command line

// Behaviour: A run's steps are shown while it runs, unless it is to be quiet
// Behaviour: A run's outcome is the exit status: 0 installed, 1 failed, 3 waiting, 4 nothing to do
TEST_F(CommandLine, ARunThatInstallsSucceeds) {
    Start();
    const Ended ended = Run("installs");
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_NE(ended.out.find("  the run begins for the certificate installs\n"), std::string::npos)
        << ended.out;
    EXPECT_EQ(ended.out.find("second line"), std::string::npos) << "the log as it is";
    EXPECT_EQ(ended.out.find("number 1"), std::string::npos) << "an event that is no failure";
    EXPECT_NE(ended.out.find("the certificate is installed\n"), std::string::npos);
}

// Behaviour: A run's log lines are followed while it runs, where that is asked for
TEST_F(CommandLine, AVerboseRunShowsTheLog) {
    Start();
    const Ended ended = Run("installs", {"--verbose"});
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_NE(ended.out.find("run of 'installs'\nsecond line\n"), std::string::npos) << "the run's log lines";
    EXPECT_NE(ended.out.find("2026-01-01 00:00:00  processing  run    number 1\n"), std::string::npos)
        << ended.out;
}

// Behaviour: A run's steps are shown while it runs ...
TEST_F(CommandLine, AQuietRunShowsNoProgress) {
    Start();
    const Ended ended = Run("installs", {"--quiet"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out.find("the run begins"), std::string::npos);
    EXPECT_NE(ended.out.find("00:00:00  run: number 1\n"), std::string::npos) << ended.out;
}

// Behaviour: A run's outcome is the exit status: 0 installed ...
TEST_F(CommandLine, ARunsOutcomeIsItsStatus) {
    Start();
    const Ended waits = Run("waits", {"--json"});
    EXPECT_EQ(waits.status, 3);
    const Json::Value json = Parse(waits.out);
    EXPECT_EQ(json["outcome"].asString(), "waiting");
    EXPECT_EQ(json["exit_status"].asInt(), 0);
    EXPECT_EQ(json["challenges"][0].asString(), "pending") << "no JSON, but what is there";
    Zelvek({"domain", "add", "shop.example", "--user", "anna"});
    int id = 1;
    for (const auto& [certname, status] :
         std::vector<std::pair<std::string, int>>{{"fails", 1}, {"stops", 1}, {"dies", 1}, {"retries", 3}}) {
        Zelvek({"job", "add", "shop.example", "--user", "anna", "--certname", certname});
        ++id;
        EXPECT_EQ(Zelvek({"job", "run", std::to_string(id), "--plugin", TEST_PLUGIN}).status, status)
            << certname;
    }
}

// Behaviour: A run's outcome is the exit status: 0 installed ...
TEST_F(CommandLine, ARunOfAnInstalledJobHasNothingToDo) {
    Start();
    EXPECT_EQ(Run("installs").status, 0);
    const Ended again = Zelvek({"job", "run", "1", "--plugin", TEST_PLUGIN});
    EXPECT_EQ(again.status, 4);
    EXPECT_NE(again.out.find("nothing to do"), std::string::npos);
    EXPECT_EQ(Parse(Zelvek({"job", "run", "1", "--plugin", TEST_PLUGIN, "--json"}).out)["outcome"].asString(),
              "nothing");
}

// Behaviour: A job that is running is neither run twice nor removed
TEST_F(CommandLine, AJobThatIsRunningIsNotRunTwice) {
    Start();
    const std::string id = AddJob();
    ReadJob(id);
    const Ended ended = Zelvek({"job", "run", id, "--plugin", TEST_PLUGIN});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "zelvek: job 1 is running already\n");
    EXPECT_EQ(ReadFile(Path("log") / "runs"), "");
}

// Behaviour: A plug-in that cannot be started is a failure that frees the job
TEST_F(CommandLine, AMissingPlugInIsAFailureThatFreesTheJob) {
    Start();
    const std::string id = AddJob();
    const Ended ended = Zelvek({"job", "run", id, "--plugin", "/nonexistent/plugin"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "zelvek: starting /nonexistent/plugin: No such file or directory\n");
    EXPECT_EQ(Zelvek({"job", "run", id, "--plugin", TEST_PLUGIN}).status, 3);
}

// Behaviour: An interrupted run ends in order
TEST_F(CommandLine, AnInterruptedRunEndsInOrder) {
    Start();
    const std::string id = AddJob({{"certname", "hangs"}});
    const auto run = StartCommand({ZELVEK_BINARY, "job", "run", id, "--verbose", "--plugin", TEST_PLUGIN});
    EXPECT_TRUE(Eventually([&] { return run->Out().find("second line") != std::string::npos; }));
    run->Signal(SIGTERM);
    const Ended ended = run->Wait();
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(Ask("func=zelvek.job.show&elid=" + id).value("kid"), "interrupted");
}

// Behaviour: A run that does not end when it is asked is killed when it is asked again
TEST_F(CommandLine, ARunThatIsAskedToEndTwiceIsKilled) {
    Start();
    for (const int second : {SIGINT, SIGTERM}) {
        const std::string id = AddJob({{"certname", "stays-" + std::to_string(second)}});
        const auto run =
            StartCommand({ZELVEK_BINARY, "job", "run", id, "--verbose", "--plugin", TEST_PLUGIN});
        const auto shown = [&](const std::string& text) {
            return Eventually([&] { return run->Out().find(text) != std::string::npos; });
        };
        EXPECT_TRUE(shown("second line"));
        run->Signal(SIGINT);
        EXPECT_TRUE(shown("does not mind"));
        EXPECT_TRUE(run->Running());
        run->Signal(second);
        const Ended ended = run->Wait();
        EXPECT_EQ(ended.status, 1);
        EXPECT_NE(ended.err.find("zelvek: the run did not end at once and is killed\n"), std::string::npos)
            << ended.err;
        EXPECT_TRUE(
            Eventually([&] { return Ask("func=zelvek.job.show&elid=" + id).value("processing") == "off"; }));
    }
}

}  // namespace

}  // namespace zelvek::testing
