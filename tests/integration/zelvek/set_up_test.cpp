// The service's start: what it takes over, and what it refuses.
#include <SQLiteCpp/Database.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "service.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;

class SetUp : public ServiceTest {
protected:
    /// What the service says when it does not start.
    std::string Refusal(const std::map<std::string, std::string>& options = {}) {
        const Ended ended = StartCommand(ServeCommand(options))->Wait();
        EXPECT_EQ(ended.status, 1) << ended.err;
        EXPECT_EQ(ended.out, "");
        return ended.err;
    }

    void MakeRunDirectory(int mode) const {
        fs::create_directory(Path("run"));
        fs::permissions(Path("run"), static_cast<fs::perms>(mode));
    }

    std::string RunDirectoryRefusal(const std::string& fault) const {
        return "zelvek: the run directory " + Path("run").string() + " " + fault +
               "; wanted is a directory of user id " + std::to_string(::geteuid()) +
               " that nobody else can write\n";
    }
};

// Behaviours of: Start and store

// Behaviour: A second service on the same socket or database is refused; a socket that nobody answers on is
//   replaced
TEST_F(SetUp, ASecondServiceInTheSameDirectoryIsRefused) {
    Start();
    EXPECT_EQ(Refusal({{"--database", Path("other.db")}}),
              "zelvek: another service runs on " + Socket().string() + " already\n");
    EXPECT_EQ(ErrorOf("func=zelvek.account.show"), "") << "the first goes on";
}

// Behaviour: A second service on the same socket or database ...
TEST_F(SetUp, ASecondServiceWithTheSameDatabaseIsRefused) {
    Start();
    ::setenv("VEK_RUN_DIR", Path("run2").c_str(), 1);
    // A lock by the path alone let in whoever had another one.
    fs::create_symlink(Database(), Path("symbolic.db"));
    fs::create_hard_link(Database(), Path("hard.db"));
    for (const fs::path& path : {Database(), Path("symbolic.db"), Path("hard.db")}) {
        EXPECT_EQ(Refusal({{"--database", path}}),
                  "zelvek: database " + path.string() + ": it is in use by another service\n");
    }
    ::setenv("VEK_RUN_DIR", Path("run").c_str(), 1);
    EXPECT_EQ(ErrorOf("func=zelvek.account.show"), "") << "the first goes on";
}

// Behaviour: A database that no service uses any more is free at once, however that one ended
TEST_F(SetUp, ADatabaseIsFreeWhenItsServiceHasEnded) {
    Start();
    Kill();
    Start();
    Stop();
    Start();
    EXPECT_EQ(ErrorOf("func=zelvek.account.show"), "");
}

/// All of a file that a mistake could change.
std::string Looks(const fs::path& file) {
    return ReadFile(file) + std::to_string(static_cast<int>(fs::status(file).permissions()));
}

// Behaviour: A file that is no database, another program's, or another user's is refused, and stays as it is
TEST_F(SetUp, AFileThatIsNoDatabaseOfOursStaysAsItIs) {
    std::ofstream(Path("text")) << "no database";
    std::ofstream(Path("long")) << std::string(100000, 'x');
    SQLite::Database(Path("foreign").string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
        .exec("CREATE TABLE theirs (x); INSERT INTO theirs VALUES (1)");
    SQLite::Database(Path("counting").string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
        .exec("CREATE TABLE theirs (x); PRAGMA user_version = 4");
    for (const auto& [name, reason] :
         std::map<std::string, std::string>{{"text", "it is no database"},
                                            {"long", "it is no database"},
                                            {"foreign", "it is another program's database"},
                                            {"counting", "it is another program's database"}}) {
        fs::permissions(Path(name), fs::perms{0755});
        const std::string before = Looks(Path(name));
        EXPECT_EQ(Refusal({{"--database", Path(name)}}),
                  "zelvek: database " + Path(name).string() + ": " + reason + "\n");
        EXPECT_EQ(Looks(Path(name)), before);
        EXPECT_FALSE(fs::exists(Path(name + "-wal")) || fs::exists(Path(name + "-shm"))) << name;
    }
}

// Behaviour: A database that is removed while the service uses it is an error, not a place to write to
TEST_F(SetUp, ARemovedDatabaseIsAnError) {
    Start();
    fs::remove(Database());
    EXPECT_EQ(ErrorOf("func=zelvek.domain.add&name=shop.example&user_name=anna"), "io");
}

// Behaviour: A file that is no database, another program's ...
// Only root can open what is another user's and closed to others.
TEST_F(SetUp, AnotherUsersDatabaseStaysAsItIs) {
    if (::geteuid() != 0) {
        EXPECT_EQ(Refusal({{"--database", "/etc/passwd"}}),
                  "zelvek: database /etc/passwd: it cannot be opened: Permission denied\n");
        return;
    }
    Start();
    Stop();
    ASSERT_EQ(::chown(Database().c_str(), kNobody, kNobody), 0);
    fs::permissions(Database(), fs::perms{0640});
    const std::string before = Looks(Database());
    EXPECT_EQ(Refusal(), "zelvek: database " + Database().string() +
                             ": it belongs to another user, number 65534; the service runs as number 0\n");
    EXPECT_EQ(Looks(Database()), before);
}

// Behaviour: The database is readable by its user alone ...
TEST_F(SetUp, ADatabaseThatOthersCouldReadIsClosedToThem) {
    std::ofstream{Database()};
    for (int time = 0; time < 2; ++time) {
        fs::permissions(Database(), fs::perms{0644});
        Start();
        for (const std::string end : {"", "-wal", "-shm"}) {
            EXPECT_EQ(fs::status(Database().string() + end).permissions(), fs::perms{0600}) << end;
        }
        Stop();
    }
}

// Behaviour: A second service on the same socket or database ...
TEST_F(SetUp, ASocketThatNobodyAnswersOnIsReplaced) {
    Start();
    Kill();
    EXPECT_TRUE(fs::exists(Socket()));
    Start();
    EXPECT_EQ(ErrorOf("func=zelvek.account.show"), "");
}

// Behaviour: A second service on the same socket or database ...
TEST_F(SetUp, AFileInTheSocketsPlaceStays) {
    MakeRunDirectory(0700);
    std::ofstream(Socket()) << "precious";
    EXPECT_EQ(Refusal(), "zelvek: " + Socket().string() + " is in the way: it is no socket\n");
    EXPECT_EQ(ReadFile(Socket()), "precious");
}

// Behaviour: A run directory that is missing is made for the service's user alone, whatever the umask is
TEST_F(SetUp, AMissingRunDirectoryIsMadeForItsUserAlone) {
    for (const std::string umask : {"0", "077", "0777"}) {
        ::setenv("VEK_RUN_DIR", (Path("of-umask-" + umask) / "deep" / "run" / "").c_str(), 1);
        const fs::path run = Path("of-umask-" + umask) / "deep" / "run";
        std::vector<std::string> words{"/bin/sh", "-c", "umask " + umask + "; exec \"$@\"", "sh"};
        for (const auto& word : ServeCommand()) words.push_back(word);
        for (const char* name : {"answers", "certs"}) fs::create_directory(Path(name));
        for (int start = 0; start < 2; ++start) {  // into the directory that the first one has made, too
            const auto service = StartCommand(words);
            EXPECT_TRUE(
                Eventually([&] { return service->Out() == "zelvek: ready\n" || !service->Running(); }));
            EXPECT_EQ(fs::status(run).permissions(), fs::perms{0700}) << umask << service->Err();
            EXPECT_EQ(fs::status(run.parent_path()).permissions(), fs::perms{0755}) << umask;
            EXPECT_EQ(fs::status(run / "zelvek.sock").permissions(), fs::perms{0600}) << umask;
            EXPECT_EQ(fs::status(run / "zelvek.lock").permissions(), fs::perms{0600}) << umask;
            service->Signal(SIGTERM);
            EXPECT_EQ(service->Wait().status, 0);
        }
    }
}

// Behaviour: A run directory in which somebody else could put a socket is refused
TEST_F(SetUp, ARunDirectoryThatOthersCanWriteIsRefused) {
    for (const int mode : {0777, 01777, 0770, 0720, 0702}) {
        MakeRunDirectory(mode);
        EXPECT_EQ(Refusal(), RunDirectoryRefusal("can be written by its group or by others")) << mode;
    }
    MakeRunDirectory(0755);
    Start();
}

// Behaviour: A run directory in which somebody else ...
TEST_F(SetUp, ARunDirectoryThatIsALinkIsRefused) {
    fs::create_directory(Path("elsewhere"));
    fs::permissions(Path("elsewhere"), fs::perms{0700});
    fs::create_directory_symlink(Path("elsewhere"), Path("run"));
    for (const std::string ending : {"", "/", "//"}) {
        ::setenv("VEK_RUN_DIR", (Path("run").string() + ending).c_str(), 1);
        EXPECT_EQ(Refusal(), RunDirectoryRefusal("is a symbolic link")) << ending;
    }
    fs::remove(Path("run"));
    std::ofstream(Path("run")) << "no directory";
    EXPECT_EQ(Refusal(), RunDirectoryRefusal("is no directory"));
}

// Behaviour: A run directory in which somebody else ...
TEST_F(SetUp, ARunDirectoryOfAnotherUserIsRefused) {
    ASSERT_EQ(::geteuid(), 0U) << "only root can give a directory away";
    MakeRunDirectory(0700);
    ASSERT_EQ(::chown(Path("run").c_str(), 65534, 65534), 0);
    EXPECT_EQ(Refusal(), RunDirectoryRefusal("belongs to user id 65534"));
}

// Behaviour: The service leaves no core file, nor does the reload command
TEST_F(SetUp, TheServiceLeavesNoCoreFile) {
    Start();
    const std::string limits = ReadFile("/proc/" + std::to_string(service().pid()) + "/limits");
    EXPECT_NE(limits.find("Max core file size        0                    0 "), std::string::npos) << limits;
    service().Signal(SIGABRT);
    siginfo_t end{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(service().pid()), &end, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(end.si_code, CLD_KILLED) << "not CLD_DUMPED";
}

// Behaviour: What cannot be used is named
TEST_F(SetUp, WhatCannotBeUsedIsNamed) {
    std::ofstream(Path("file")) << "no directory, no database";
    EXPECT_NE(Refusal({{"--answers-dir", Path("file")}})
                  .find("the answers' directory: cannot make the folder " + Path("file").string()),
              std::string::npos);
    EXPECT_NE(Refusal({{"--certs-dir", Path("file") / "x"}}).find("the certificates' directory"),
              std::string::npos);
    EXPECT_NE(Refusal({{"--database", Path("file")}}).find("database " + Path("file").string()),
              std::string::npos);
    EXPECT_NE(
        Refusal({{"--scheduler", "on"}, {"--plugin", "/nonexistent/plugin"}}).find("/nonexistent/plugin"),
        std::string::npos);
    EXPECT_NE(Refusal({{"--http-responder", "nowhere"}}).find("nowhere"), std::string::npos);
    EXPECT_EQ(Refusal({{"--dns-server", "127.0.0.1"}}),
              "zelvek: a DNS server and a file of records exclude each other\n");
    EXPECT_EQ(ReadFile(Path("file")), "no directory, no database");
}

// Behaviour: What cannot be used is named ...
TEST_F(SetUp, APortInUseIsNamed) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    ASSERT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), size), 0);
    ASSERT_EQ(::listen(fd, 1), 0);
    ASSERT_EQ(::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size), 0);
    const std::string where = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    EXPECT_NE(Refusal({{"--http-responder", where}}).find(where), std::string::npos);
    ::close(fd);
}

}  // namespace

}  // namespace zelvek::testing
