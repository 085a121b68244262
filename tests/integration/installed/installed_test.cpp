// What somebody has who installs the framework alone: the example is built from there, with its unit test,
// and run against a real service.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "integration/vek/server.h"
#include "integration/zelvek/service.h"
#include "vek/proc.h"
#include "vek/str.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using vek_proc::Escape;
using zelvek::testing::Ended;
using zelvek::testing::Eventually;
using zelvek::testing::ReadFile;

// Always the same place: a compiler cache knows what it has compiled there.
const fs::path kFolder = fs::path(BUILD_FOLDER) / "installed";
const fs::path kPrefix = kFolder / "stage" / "usr";
const fs::path kExample = kPrefix / "share/doc/libvek-dev/examples";
const fs::path kBuilt = kFolder / "example";

void Do(const std::string& command) {
    vek_proc::Execute tool("exec 2>&1; " + command, vek_proc::kPipeOut);
    const std::string output = tool.Str();
    if (tool.Result() != 0) throw std::runtime_error(command + "\n" + output);
}

const std::string kCmake = Escape(CMAKE_PROGRAM);

void Install() {
    fs::remove_all(kFolder);
    Do("DESTDIR=" + Escape(kFolder / "stage") + " " + kCmake + " --install " + Escape(BUILD_FOLDER) +
       " --prefix /usr --component framework");
}

void Build() {
    Do(kCmake + " -S " + Escape(kExample) + " -B " + Escape(kBuilt) + " -G " + Escape(GENERATOR) +
       " -DCMAKE_PREFIX_PATH=" + Escape(kPrefix) + " -DCMAKE_CXX_COMPILER=" + Escape(COMPILER) +
       " -DCMAKE_CXX_FLAGS=" + Escape("-O0 -Wall -Wextra -Werror " COMPILER_FLAGS) +
       " -DCMAKE_EXE_LINKER_FLAGS=" + Escape(LINKER_FLAGS));
    Do(kCmake + " --build " + Escape(kBuilt) + " -j2");
}

class InstalledFramework : public zelvek::testing::ServiceTest {
protected:
    static void SetUpTestSuite() {
        Install();
        Build();
    }

    std::unique_ptr<zelvek::testing::Command> StartExample(const std::vector<std::string>& arguments) {
        std::vector<std::string> words{kBuilt / "site-check"};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return StartCommand(words);
    }

    Ended Example(const std::vector<std::string>& arguments) { return StartExample(arguments)->Wait(); }

    // "state event detail" of a job's history.
    static std::vector<std::string> HistoryOf(const std::string& id) {
        std::vector<std::string> lines;
        const auto shown = Ask("func=zelvek.job.show&elid=" + id);
        for (const auto& event : shown.xml().GetNodes("/doc/event"))
            lines.push_back(event.Value("state") + " " + event.Value("event") + " " + event.Value("detail"));
        return lines;
    }

    static bool IsRunning(const std::string& id) {
        return Ask("func=zelvek.job.show&elid=" + id).value("processing") == "on";
    }
};

// Behaviours of: The framework for other plug-ins

// Behaviour: What is installed of the framework is what the package takes
TEST_F(InstalledFramework, IsWhatThePackageTakes) {
    std::ifstream list(fs::path(SOURCE_FOLDER) / "debian/libvek-dev.install");
    std::vector<std::string> places;
    for (std::string line; std::getline(list, line);) {
        places.push_back(str::Replace(str::Replace(line, "*/", ""), "*", ""));
        EXPECT_EQ(vek_proc::Execute("ls -d " + Escape(kFolder / "stage") + "/" + places.back() + "*",
                                    vek_proc::kPipeOut)
                      .Result(),
                  0)
            << line;
    }
    for (const auto& entry : fs::recursive_directory_iterator(kFolder / "stage")) {
        const std::string file = entry.path().lexically_relative(kFolder / "stage");
        const auto takes = [&](const std::string& place) { return file.starts_with(place); };
        EXPECT_TRUE(entry.is_directory() || std::any_of(places.begin(), places.end(), takes)) << file;
    }
}

// Behaviour: The example is built from what is installed alone, and its unit test on the double passes
TEST_F(InstalledFramework, BuildsTheExampleAndItsUnitTest) {
    const std::string cache = ReadFile(kBuilt / "CMakeCache.txt");
    EXPECT_THAT(cache, HasSubstr("vek_DIR:PATH=" + kPrefix.string() + "/lib"));
    vek_proc::Execute test(Escape(kBuilt / "site_check_test"), vek_proc::kPipeOut);
    EXPECT_THAT(test.Str(), HasSubstr("[  PASSED  ] 5 tests."));
    EXPECT_EQ(test.Result(), 0);
}

// Behaviour: Nothing outside of the installed headers, the double and the system is read for it
TEST_F(InstalledFramework, ReadsNothingOfTheSources) {
    vek_proc::Execute search(
        "grep -rlF -- -I" + Escape(SOURCE_FOLDER) + "/libvek " + Escape(kBuilt) + " | head -1",
        vek_proc::kPipeOut);
    EXPECT_EQ(search.Str(), "");
    EXPECT_THAT(ReadFile(kPrefix / "lib/cmake/vek/vekTargets.cmake"), testing::Not(HasSubstr(SOURCE_FOLDER)));
}

// Behaviour: The example asks a site, runs a tool and writes into its job's history what it saw
TEST_F(InstalledFramework, TheExampleWritesWhatItSawIntoTheHistory) {
    Start();
    const std::string id = AddJob();
    int status = 200;
    const vek_test::Server site([&](vek_test::Connection& connection) {
        connection.ReadRequest();
        connection.Write(vek_test::Answer(status, "", "page"));
    });
    EXPECT_EQ(Example({id, site.url()}).status, 0);
    status = 404;
    EXPECT_EQ(Example({id, site.url()}).status, 1);
    // printf page | sha256sum
    const std::string digest = "3660315a9af3df255d8f19ab077e4797822b41488a0e2a04bc6af71213c23274";
    EXPECT_THAT(HistoryOf(id),
                ElementsAre("success site_check 200 " + digest, "failed site_check 404 " + digest));
    EXPECT_FALSE(IsRunning(id));
    EXPECT_THAT(ReadFile(Path("log") / "site-check.log"),
                HasSubstr(" site-check.run " + site.url() + ": 200 "));
}

// Behaviour: An interrupted run of the example ends in order, and its job is free
TEST_F(InstalledFramework, TheExampleIsInterruptedInOrder) {
    Start();
    const std::string id = AddJob();
    std::atomic<bool> asked = false;
    const vek_test::Server site([&](vek_test::Connection& connection) {
        connection.ReadRequest();
        asked = true;
        connection.AwaitEnd();
    });
    const auto run = StartExample({id, site.url()});
    ASSERT_TRUE(Eventually([&] { return asked.load(); }));
    EXPECT_TRUE(IsRunning(id));
    run->Signal(SIGTERM);
    const Ended ended = run->Wait();
    EXPECT_EQ(ended.status, 128 + SIGTERM);
    EXPECT_EQ(ended.err, "site-check: ended by Terminated\n");
    EXPECT_FALSE(IsRunning(id));
    EXPECT_THAT(HistoryOf(id), testing::IsEmpty());
}

// Behaviour: The example says what it is, and which socket it tried where there is no service
TEST_F(InstalledFramework, TheExampleSaysWhatItIsAndWhatItMisses) {
    EXPECT_EQ(Example({"--version"}).out, "site-check 1.0.0\n");
    EXPECT_THAT(Example({"--help"}).out, StartsWith("usage: site-check ID [URL]\n"));
    const Ended ended = Example({"1"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.err,
              "site-check: client: connect: " + Socket().string() + ": No such file or directory\n");
}

}  // namespace
