// Real child processes.
#include "vek/proc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "integration/vek/server.h"
#include "libvek/src/spawn.h"
#include "vek/err.h"
#include "vek/str.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::HasSubstr;
using vek_proc::Execute;

constexpr int kFedAndRead = vek_proc::kPipeIn | vek_proc::kPipeOut | vek_proc::kOwnSession;
constexpr seconds kSoon{30};  // for what takes no time on an idle machine, and minutes where it fails

std::string Output(const std::string& command, int mode = kFedAndRead) {
    return Execute(command, mode).Str();
}

// An orphan that nobody has reaped yet has ended as well.
bool Runs(pid_t pid) {
    std::string stat;
    std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/stat"), stat);
    return !stat.empty() && stat.find(") Z") == std::string::npos;
}

// The process has ended, or ends soon.
bool Ends(pid_t pid) {
    const auto end = steady_clock::now() + kSoon;
    while (Runs(pid) && steady_clock::now() < end) std::this_thread::sleep_for(milliseconds(20));
    return !Runs(pid);
}

// The process id that a child writes to a file.
pid_t PidIn(const std::string& file) {
    const auto end = steady_clock::now() + kSoon;
    while (steady_clock::now() < end) {
        std::string line;
        if (std::getline(std::ifstream(file), line) && !line.empty()) return str::Int(line);
        std::this_thread::sleep_for(milliseconds(20));
    }
    return 0;
}

long CountDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
}

bool HasNoChildren() { return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD; }

// Behaviours of: Child processes and sleeps

// Behaviour: A child is run by the shell, fed and read ...
TEST(ChildProcess, IsFedAndReadTogetherHoweverMuchThereIs) {
    std::string much;
    for (int i = 0; much.size() < (20U << 20); ++i) much += std::to_string(i) + "\n";
    Execute child("cat", kFedAndRead);
    child.In() << much;
    EXPECT_TRUE(child.Str() == much);
    EXPECT_EQ(child.Result(), 0);
}

// Behaviour: A child is run by the shell, fed and read ...
TEST(ChildProcess, MayWriteMuchBeforeItReads) {
    const std::string much(5 << 20, 'x');
    Execute child("head -c 5000000 /dev/zero; wc -c", kFedAndRead);
    child.In() << much;
    EXPECT_EQ(str::Trim(child.Str().substr(5000000)), "5242880");
}

// Behaviour: A child that does not read its input is no ...
// SIGPIPE would end this process, which does not handle it.
TEST(ChildProcess, MayEndWithoutReading) {
    for (const char* command : {"exit 4", "exec <&-; sleep 0.2; exit 4", "head -c 1 >/dev/null; exit 4"}) {
        Execute child(command, kFedAndRead);
        child.In() << std::string(5 << 20, 'x');
        EXPECT_EQ(child.Result(), 4) << command;
    }
}

// Behaviour: Threads may run children at once, and the ...
TEST(ChildProcess, LeavesTheHandlingOfSigpipeAlone) {
    struct sigaction action {};
    sigset_t mask;
    Output("true");
    sigaction(SIGPIPE, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_DFL);
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
}

// Behaviour: A child is waited for to its end and no longer, whatever it leaves behind
TEST(ChildProcess, MayCloseItsOutputEarly) {
    Execute child("echo x; exec >&-; sleep 0.3; exit 5", kFedAndRead);
    EXPECT_EQ(child.Str(), "x\n");
    EXPECT_EQ(child.Result(), 5);
}

// Behaviour: A child is waited for to its end and no longer ...
TEST(ChildProcess, IsNotWaitedForBeyondItsEnd) {
    const vek_test::TempFolder folder;
    const auto start = steady_clock::now();
    EXPECT_EQ(Output("sleep 300 & echo $! >" + folder.file("pid") + "; echo done"), "done\n");
    EXPECT_LT(steady_clock::now() - start, kSoon);
    const pid_t left = PidIn(folder.file("pid"));
    EXPECT_EQ(kill(left, SIGKILL), 0) << "what a child leaves behind is its own matter";
}

// Behaviour: A child is waited for to its end and no longer ...
TEST(ChildProcess, IsNotReadForEverAfterItsEnd) {
    const auto start = steady_clock::now();
    const std::string output = Output("yes & sleep 0.2; echo done");
    EXPECT_LT(steady_clock::now() - start, kSoon);
    EXPECT_THAT(output, testing::StartsWith("y\ny\n"));
}

// Behaviour: A command that is not there has status 127 ...
TEST(ChildProcess, TellsHowItEnded) {
    EXPECT_EQ(Execute("exit 255", 0).Result(), 255);
    EXPECT_EQ(Execute("kill -TERM $$", kFedAndRead).Result(), 128 + SIGTERM);
    EXPECT_EQ(Execute("kill -KILL $$", kFedAndRead).Result(), 128 + SIGKILL);
    EXPECT_EQ(Execute("/no/such/tool 2>/dev/null", kFedAndRead).Result(), 127);
}

// Behaviour: A command that begins with a minus is a command ...
TEST(ChildProcess, IsAShellThatIsFedEveryByteOnce) {
    EXPECT_EQ(Output("echo $0"), "sh\n");
    Execute child("cat", kFedAndRead);
    child.In() << "x";
    EXPECT_EQ(child.Str(), "x");
}

// Behaviour: A child without fed input has none, and one ...
// A grandchild that reads on finds the end of the input there.
TEST(ChildProcess, IsFedNoMoreAfterItsEnd) {
    const vek_test::TempFolder folder;
    Execute child("exec 3<&0; { sleep 0.3; wc -c >" + folder.file("count") + "; echo $$ >" +
                      folder.file("pid") + "; } <&3 &",
                  vek_proc::kPipeIn);
    child.In() << std::string(1 << 20, 'x');
    EXPECT_EQ(child.Result(), 0);
    EXPECT_NE(PidIn(folder.file("pid")), 0);
}

// Behaviour: A command that begins with a minus is a command
TEST(ChildProcess, MayHaveACommandThatBeginsWithAMinus) {
    EXPECT_EQ(Execute("-x 2>/dev/null", kFedAndRead).Result(), 127);
}

// Behaviour: A child without fed input has none, and one whose output is not read gives none
TEST(ChildProcess, HasNoInputUnlessFed) {
    EXPECT_EQ(Output("cat; echo end", vek_proc::kPipeOut), "end\n");
    Execute child("cat; echo end", vek_proc::kPipeOut);
    child.In() << "not for it";
    EXPECT_EQ(child.Str(), "end\n");
}

// Behaviour: A child that runs too long is ended with everything that it has started
TEST(ChildProcess, IsEndedWhenItRunsTooLong) {
    const vek_test::TempFolder folder;
    const auto start = steady_clock::now();
    Execute child("echo begun; sleep 300 | (echo $$ >" + folder.file("shell") + "; sleep 300 & echo $! >" +
                      folder.file("sleep") + "; wait)",
                  kFedAndRead);
    const pid_t shell = PidIn(folder.file("shell"));
    const pid_t sleep = PidIn(folder.file("sleep"));
    child.LimitTime(milliseconds(300));
    EXPECT_EQ(child.Result(), 128 + SIGKILL);
    EXPECT_EQ(child.Str(), "begun\n");
    EXPECT_LT(steady_clock::now() - start, kSoon);
    EXPECT_TRUE(Ends(shell));
    EXPECT_TRUE(Ends(sleep));
}

// Behaviour: A child that runs too long is ended with ...
TEST(ChildProcess, IsEndedInTimeWhileItWritesAndWhileItDoesNotRead) {
    Execute writes("yes", kFedAndRead);
    writes.LimitTime(milliseconds(200));
    EXPECT_EQ(writes.Result(), 128 + SIGKILL);
    Execute deaf("sleep 300", kFedAndRead);
    deaf.In() << std::string(1 << 20, 'x');
    deaf.LimitTime(milliseconds(200));
    EXPECT_EQ(deaf.Result(), 128 + SIGKILL);
}

// Behaviour: A child that runs too long is ended with ...
TEST(ChildProcess, IsEndedInTimeWithoutASessionToo) {
    Execute child("exec sleep 300", vek_proc::kPipeOut);
    child.LimitTime(milliseconds(200));
    EXPECT_EQ(child.Result(), 128 + SIGKILL);
}

// Behaviour: Every child is reaped and leaves no descriptor behind
TEST(ChildProcess, IsEndedAndReapedWithItsObject) {
    const vek_test::TempFolder folder;
    pid_t shell = 0;
    pid_t sleep = 0;
    {
        const Execute child(
            "echo $$ >" + folder.file("shell") + "; sleep 300 & echo $! >" + folder.file("sleep") + "; wait",
            kFedAndRead);
        shell = PidIn(folder.file("shell"));
        sleep = PidIn(folder.file("sleep"));
    }
    EXPECT_TRUE(Ends(shell));
    EXPECT_TRUE(Ends(sleep));
    EXPECT_TRUE(HasNoChildren());
}

// Behaviour: Every child is reaped and leaves no descriptor ...
TEST(ChildProcess, IsReapedAndLeavesNoDescriptors) {
    const long before = CountDescriptors();
    for (int i = 0; i < 20; ++i) Output("echo x");
    { const Execute never_waited_for("cat", kFedAndRead); }
    EXPECT_EQ(CountDescriptors(), before);
    EXPECT_TRUE(HasNoChildren());
}

// Behaviour: A child has a session of its own, without a terminal, when that is asked for
TEST(ChildProcess, HasASessionOfItsOwnWhenAsked) {
    const std::string session = "cut -d' ' -f6 /proc/$$/stat; echo $$";
    std::string output = Output(session);
    EXPECT_EQ(str::GetWord(output, '\n'), str::GetWord(output, '\n'));
    output = Output(session, vek_proc::kPipeOut);
    EXPECT_EQ(str::GetWord(output, '\n'), std::to_string(getsid(0)));
    EXPECT_EQ(Output("(exec 3<>/dev/tty) 2>/dev/null && echo tty", kFedAndRead), "");
}

// Behaviour: A child inherits no descriptors, and handles signals as a fresh process does
TEST(ChildProcess, InheritsNoDescriptors) {
    const int inheritable = open("/dev/null", O_RDONLY);  // NOLINT(android-cloexec-open)
    const Execute neighbour("cat", kFedAndRead);
    // The glob's own descriptor of the folder is the fourth.
    EXPECT_EQ(Output("cd /proc/$$/fd && echo *"), "0 1 2 3\n");
    EXPECT_EQ(Output("exec ls /proc/self/fd"), "0\n1\n2\n3\n");
    close(inheritable);
}

// Behaviour: Children run where standard descriptors are closed
// In a process of its own, without the launcher that would open them.
TEST(ChildProcess, MayBeRunWhereStandardDescriptorsAreClosed) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [](std::initializer_list<int> closed) {
        for (const int fd : closed) close(fd);
        const vek_proc::Pipe pipe = vek_proc::MakePipe();
        if (pipe.read.get() <= STDERR_FILENO || pipe.write.get() <= STDERR_FILENO) std::_Exit(2);
        for (const char* text : {"one", "two"}) {
            Execute child("cat; test ! -e /proc/self/fd/9", kFedAndRead);
            child.In() << text;
            if (child.Str() != text || child.Result() != 0) std::_Exit(1);
        }
        std::_Exit(0);
    };
    EXPECT_EXIT(run({0}), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(run({1}), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(run({0, 1}), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(run({0, 1, 2}), testing::ExitedWithCode(0), "");
}

// Behaviour: A child inherits no descriptors, and handles ...
TEST(ChildProcess, HandlesSignalsAsAFreshProcessDoes) {
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    const auto handler = std::signal(SIGHUP, SIG_IGN);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    const std::string output = Output("exec grep '^Sig[BI]' /proc/self/status");
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    std::signal(SIGHUP, handler);
    // The C library ignores two signals of its own (32 and 33) in what it starts.
    EXPECT_THAT(output,
                testing::MatchesRegex("SigBlk:\t0000000000000000\nSigIgn:\t0000000[01][08]0000000\n"));
}

// How many of some children do not give back what they were fed.
int CountFailures(int thread) {
    int failed = 0;
    for (int i = 0; i < 15; ++i) {
        const std::string text = std::to_string(thread) + std::string(100'000, 'x') + std::to_string(i);
        Execute child("cat", kFedAndRead);
        child.In() << text;
        failed += child.Str() == text && child.Result() == 0 ? 0 : 1;
    }
    return failed;
}

// Behaviour: Threads may run children at once, and the caller's signals stay as they are
TEST(ChildProcess, MayBeRunByManyThreads) {
    std::array<std::future<int>, 6> threads;
    int number = 0;
    for (auto& thread : threads) thread = std::async(std::launch::async, CountFailures, number++);
    for (auto& thread : threads) EXPECT_EQ(thread.get(), 0);
    EXPECT_TRUE(HasNoChildren());
}

// Behaviour: A child that cannot be started is an error "start"
TEST(ChildProcess, ThatCannotBeStartedIsAnError) {
    try {
        const Execute child("true " + std::string(1 << 20, 'x'), kFedAndRead);
        FAIL();
    } catch (const vek_err::Error& e) {
        EXPECT_EQ(e.type(), "start");
        EXPECT_THAT(e.what(), HasSubstr("Argument list too long"));
    }
}

// Behaviour: A quoted text is one word for the shell, whatever it holds; a NUL byte ends it
TEST(ShellWord, StandsForItsTextWhateverItHolds) {
    std::string every_byte;
    for (int value = 1; value < 256; ++value) every_byte += static_cast<char>(value);
    for (const std::string& text :
         {every_byte, std::string(), std::string("-n"), std::string("''\\'"), std::string("a\n")}) {
        EXPECT_EQ(Output("printf %s " + vek_proc::Escape(text) + "; echo ."), text + ".\n");
    }
}

// Behaviour: A sleep takes its time, the longest that 64 bits hold too
TEST(Waits, TakeTheirTime) {
    const auto start = steady_clock::now();
    vek_proc::Sleep(300);
    EXPECT_GE(steady_clock::now() - start, milliseconds(300));
}

// Behaviour: Threads may run children at once, and the ...
// Without the launcher, the program's own handling of signals stays. Set here, because whoever started the
// tests may have had them ignored.
TEST(Waits, InstallNoHandlers) {
    for (const int number : {SIGTERM, SIGINT}) {
        for (const auto handler : {SIG_DFL, SIG_IGN}) {
            const auto before = std::signal(number, handler);
            vek_proc::Sleep(1);
            EXPECT_EQ(std::signal(number, before), handler);
        }
    }
}

// Behaviour: Of a child that writes without end the last bytes are kept, and no others take memory
TEST(Execute, KeepsTheLastOfALongOutput) {
    const std::string numbers = "seq 1 200000";
    const std::string all = Output(numbers);
    for (const std::size_t kept :
         {std::size_t{0}, std::size_t{1000}, std::size_t{100000}, all.size(), all.size() + 1}) {
        Execute child(numbers, kFedAndRead);
        child.KeepLast(kept);
        EXPECT_EQ(child.Str(), all.substr(all.size() - std::min(kept, all.size()))) << kept;
    }
}

}  // namespace
