// Real log files.
#include "vek/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "integration/vek/server.h"
#include "vek/date.h"

namespace {

class LogFile : public testing::Test {
protected:
    std::string Text() const {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }

    vek_test::TempFolder folder;
    vek_test::Variable directory{"VEK_LOG_DIR", folder.path()};
    std::string path = folder.file("ambrin.log");
    vek_log::Module module{"zelvek", "sslcert"};
};

// Behaviours of: Log files

// Behaviour: A line has date and time, process id, level, component and module, text
TEST_F(LogFile, HasLinesWithTimeProcessLevelAndModule) {
    const vek_date::DateTime before;
    vek_log::Init("ambrin", 9);
    module.Write(vek_log::kFailure, "%s failed", "it");
    const std::string text = Text();
    const std::string time = text.substr(0, before.AsDateTime().size());
    EXPECT_GE(vek_date::DateTime(time), before);
    EXPECT_LE(vek_date::DateTime(time), vek_date::DateTime());
    EXPECT_EQ(text.substr(time.size()),
              " [" + std::to_string(getpid()) + "] WARNING zelvek.sslcert it failed\n");
}

// Behaviour: VEK_LOG_LEVEL lowers the level that a program asks for and never raises it; what is no number
//   changes nothing
TEST_F(LogFile, HasTheLevelsThatItsStarterWants) {
    for (const auto& [wanted, level] : std::map<std::string, int>{
             {"8", 8}, {"4", 4}, {"0", 0}, {"-1", 0}, {"9", 8}, {"", 8}, {"x", 8}, {"4x", 8}}) {
        const vek_test::Variable variable{"VEK_LOG_LEVEL", wanted};
        vek_log::Init("ambrin", 8);
        for (const int each : {3, 4, 8, 9}) EXPECT_EQ(module.Check(each), each <= level) << wanted << each;
    }
}

// Behaviour: A line has date and time, process id, level ...
TEST_F(LogFile, NamesItsLevels) {
    vek_log::Init("ambrin", 9);
    for (const int level : {3, 4, 8, 9}) module.Write(level, "%d", level);
    const std::string text = Text();
    for (const char* part : {" ERROR zelvek.sslcert 3\n", " WARNING zelvek.sslcert 4\n",
                             " FUNCTION zelvek.sslcert 8\n", " TRACE zelvek.sslcert 9\n"}) {
        EXPECT_THAT(text, testing::HasSubstr(part));
    }
}

// Behaviour: A line has date and time, process id, level ...
TEST_F(LogFile, GivesLevelsBetweenThemTheNextName) {
    vek_log::Init("ambrin", 99);
    for (const int level : {1, 2, 5, 7, 10, 99}) module.Write(level, "%d", level);
    const std::string text = Text();
    for (const char* part :
         {" ERROR zelvek.sslcert 1\n", " ERROR zelvek.sslcert 2\n", " FUNCTION zelvek.sslcert 5\n",
          " FUNCTION zelvek.sslcert 7\n", " TRACE zelvek.sslcert 10\n", " TRACE zelvek.sslcert 99\n"}) {
        EXPECT_THAT(text, testing::HasSubstr(part));
    }
}

// Behaviour: Lines up to the opened level are written ...
TEST_F(LogFile, HoldsNothingBeyondItsLevel) {
    vek_log::Init("ambrin", 4);
    for (const int level : {-1, 0, 5, 9}) {
        EXPECT_FALSE(module.Check(level));
        module.WriteText(level, "text");
    }
    EXPECT_EQ(Text(), "");
    EXPECT_TRUE(module.Check(1));
    EXPECT_TRUE(module.Check(4));
}

// Behaviour: Lines up to the opened level are written ...
TEST_F(LogFile, HoldsNothingAtLevelZero) {
    vek_log::Init("ambrin", 0);
    EXPECT_FALSE(module.Check(vek_log::kUse));
    EXPECT_FALSE(module.Check(0));
    module.Write(vek_log::kUse, "text");
    EXPECT_EQ(Text(), "");
}

// Behaviour: The file is appended to, whole lines at a time, by any number of processes
TEST_F(LogFile, IsAppendedTo) {
    std::ofstream(path) << "earlier\n";
    vek_log::Init("ambrin", 9);
    module.Write(9, "one");
    vek_log::Init("ambrin", 9);
    module.Write(9, "two");
    EXPECT_THAT(Text(), testing::MatchesRegex("earlier\n.* one\n.* two\n"));
}

// Behaviour: Texts are written as they are, line feeds included
TEST_F(LogFile, KeepsTextsAsTheyAre) {
    vek_log::Init("ambrin", 9);
    const std::string text("a\n  b\r\n\0%s \xff", 12);
    module.Write(9, "%s", text);
    EXPECT_THAT(Text(), testing::EndsWith(" TRACE zelvek.sslcert " + text + "\n"));
}

// Behaviour: The file is not readable by everybody
TEST_F(LogFile, CannotBeReadByEverybody) {
    const auto mask = umask(0);
    vek_log::Init("ambrin", 9);
    umask(mask);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

// Behaviour: The file is appended to, whole lines at a ...
TEST_F(LogFile, DoesNotMixTheLinesOfProcesses) {
    constexpr int kProcesses = 4;
    constexpr int kLines = 200;
    vek_log::Init("ambrin", 9);
    for (int i = 0; i < kProcesses; ++i) {
        if (fork() != 0) continue;
        const std::string text(3000, static_cast<char>('a' + i));
        for (int line = 0; line < kLines; ++line) module.Write(9, "%s", text);
        _exit(0);
    }
    for (int i = 0; i < kProcesses; ++i) wait(nullptr);
    std::istringstream lines(Text());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        const std::string text = line.substr(line.rfind(' ') + 1);
        ASSERT_EQ(text, std::string(3000, text[0]));
    }
    EXPECT_EQ(count, kProcesses * kLines);
}

// Behaviour: A file that cannot be opened, or a full disk, costs one line on standard error
TEST_F(LogFile, ThatCannotBeOpenedCostsOneLine) {
    const vek_test::Variable missing("VEK_LOG_DIR", folder.file("missing"));
    testing::internal::CaptureStderr();
    vek_log::Init("ambrin", 9);
    module.Write(9, "text");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "log: " + folder.file("missing") + "/ambrin.log: No such file or directory\n");
    EXPECT_FALSE(module.Check(1));
}

// Behaviour: The file lies in VEK_LOG_DIR, or in /var/log/vek where that is unset or empty, and is open once
TEST_F(LogFile, IsInTheUsualFolderWhereNoneIsSet) {
    const std::string error = "log: /var/log/vek/no-such/log.log: No such file or directory\n";
    const vek_test::Variable empty("VEK_LOG_DIR", "");
    testing::internal::CaptureStderr();
    vek_log::Init("no-such/log", 9);
    unsetenv("VEK_LOG_DIR");
    vek_log::Init("no-such/log", 9);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), error + error);
}

// Behaviour: The file lies in VEK_LOG_DIR, or in /var/log/vek ...
TEST_F(LogFile, IsOpenOnceHoweverOftenItIsOpened) {
    const auto count = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    vek_log::Init("ambrin", 9);
    const auto before = count();
    for (int i = 0; i < 5; ++i) vek_log::Init("ambrin", 9);
    EXPECT_EQ(count(), before);
}

// Behaviour: A file that cannot be opened, or a full disk ...
// In a process of its own, because only the first failure is told.
TEST_F(LogFile, WhoseLinesAreCutOffCostsOneLine) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    std::ofstream(path) << std::string(490, 'x');
    const auto write_cut_off = [this] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit most{500, 500};
        setrlimit(RLIMIT_FSIZE, &most);
        vek_log::Init("ambrin", 9);
        errno = 0;
        module.Write(9, "text");
        std::_Exit(0);
    };
    EXPECT_EXIT(write_cut_off(), testing::ExitedWithCode(0),
                "^log: cannot write: No space left on device\n$");
}

// Behaviour: A file that cannot be opened, or a full disk ...
TEST_F(LogFile, OnAFullDiskCostsOneLine) {
    std::filesystem::create_symlink("/dev/full", path);
    vek_log::Init("ambrin", 9);
    testing::internal::CaptureStderr();
    module.Write(9, "one");
    module.Write(9, "two");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "log: cannot write: No space left on device\n");
}

// Behaviour: A log file that is renamed or removed is begun anew with the next line
TEST_F(LogFile, IsBegunAnewWhenItIsRenamed) {
    vek_log::Init("ambrin", 9);
    module.WriteText(3, "first");
    const std::string old = folder.file("ambrin.log.1");
    std::filesystem::rename(path, old);
    module.WriteText(3, "second");
    EXPECT_THAT(Text(),
                testing::AllOf(testing::HasSubstr("second"), testing::Not(testing::HasSubstr("first"))));
    std::filesystem::remove(path);
    module.WriteText(3, "third");
    EXPECT_THAT(Text(), testing::HasSubstr("third"));
    // Where no new one can be made, the lines go on in the old one.
    std::filesystem::rename(path, old);
    std::filesystem::create_directory(path);
    module.WriteText(3, "fourth");
    std::ostringstream text;
    text << std::ifstream(old).rdbuf();
    EXPECT_THAT(text.str(), testing::HasSubstr("fourth"));
}

}  // namespace
