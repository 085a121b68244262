// The command line of people who are neither root nor the service's user.
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>

#include "people.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;

using CommandsOfOthers = ServiceForGroups;

// Behaviours of: Rights

// Behaviour: A reader's commands show and change nothing, an administrator's change; the refusal is one line
//   with the group that it takes, and exit status 5
TEST_F(CommandsOfOthers, HoldForCommands) {
    StartForGroups();
    Furnish();
    EXPECT_NE(As(kReader, {"status"}).out.find("1 failing"), std::string::npos);
    EXPECT_NE(As(kReader, {"job", "list"}).out.find("shop.example"), std::string::npos);
    EXPECT_EQ(As(kReader, {"job", "show", "1"}).status, 0);
    EXPECT_EQ(As(kReader, {"status", "--check"}).status, 1) << "its job fails";
    const Ended retry = As(kReader, {"job", "retry", "1"});
    EXPECT_EQ(retry.status, 5);
    EXPECT_EQ(retry.out, "");
    EXPECT_EQ(retry.err, "zelvek: zelvek.job.retry needs group games\n");
    EXPECT_EQ(As(kReader, {"job", "retry", "1", "--json"}).err,
              "{\"error\":{\"code\":\"denied\",\"message\":\"zelvek.job.retry needs group games\"}}\n");

    EXPECT_EQ(As(kAdmin, {"job", "retry", "1"}).out, "1 job tried again\n");
    EXPECT_EQ(As(kAdmin, {"domain", "add", "new.example", "--user", "anna"}).status, 0);
    EXPECT_EQ(As(kAdmin, {"job", "add", "new.example", "--user", "anna"}).out, "job 2 added\n");
    EXPECT_EQ(Zelvek({"job", "remove", "2"}).status, 0) << "root's command";
}

// Behaviour: A command that needs more than the service's answers says so in one line: runs, backups, the
//   service's options
TEST_F(CommandsOfOthers, OfAnAdministratorEndAtTheServicesFiles) {
    StartForGroups();
    AddJob();
    const Ended run = As(kAdmin, {"job", "run", "1"});
    EXPECT_EQ(run.status, 5);
    EXPECT_EQ(
        run.err,
        "zelvek: \"zelvek job run\" needs root or the service's own user; \"zelvek job retry 1\" has the "
        "service run the job now\n");
    const Ended backup =
        As(kAdmin, {"backup", Path("run/backup"), "--database", Database(), "--certs-dir", Path("certs")});
    EXPECT_EQ(backup.status, 5);
    EXPECT_EQ(backup.err,
              "zelvek: \"zelvek backup\", which reads all keys, needs root or the service's own user: " +
                  Database().string() + " is closed to others\n");
    std::ofstream(Path("conf")) << "database=" << Database().string() << "\n";
    fs::permissions(Path("conf"), fs::perms{0600});
    const Ended check = As(kAdmin, {"config", "check", "--config", Path("conf")});
    EXPECT_EQ(check.status, 5);
    EXPECT_EQ(check.err, "zelvek: reading the service's options needs root or the service's own user: " +
                             Path("conf").string() + " is closed to others\n");
    const Ended doctor = As(kAdmin, {"doctor"});
    EXPECT_EQ(doctor.status, 0) << doctor.out << doctor.err;
    EXPECT_NE(doctor.out.find("were not looked at"), std::string::npos) << doctor.out;
    EXPECT_NE(doctor.out.find(" answers"), std::string::npos) << doctor.out;
}

// Behaviour: A stranger's command says who may ask, in one line, with exit status 5; to monitoring the state
// of
//   the service is unknown then
TEST_F(CommandsOfOthers, OfAStrangersCommandAreNone) {
    StartForGroups();
    const Ended list = As(kStranger, {"job", "list"});
    EXPECT_EQ(list.status, 5);
    EXPECT_EQ(list.out, "");
    EXPECT_EQ(list.err,
              "zelvek: cannot reach the service: client: connect: " + Socket().string() +
                  ": Permission denied; this needs root, the service's user, or a member of one of the "
                  "service's groups, usually zelvek-admin and zelvek-read\n");
    EXPECT_EQ(As(kStranger, {"status", "--check"}).status, 3);
}

/// A socket that another user than the run directory's listens on. It says nothing, and writes what it hears
/// into a file.
class Impostor {
public:
    Impostor(const fs::path& socket, const fs::path& heard) : listener_(::socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        socket.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(::bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        fs::permissions(socket, fs::perms{0666});
        std::ofstream out(heard);
        child_ = ::fork();
        if (child_ == 0) Serve(out);
        EXPECT_TRUE(Eventually([&] { return ReadFile(heard).starts_with("listens\n"); }));
    }
    ~Impostor() {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
        ::close(listener_);
    }
    Impostor(const Impostor&) = delete;
    Impostor& operator=(const Impostor&) = delete;

private:
    [[noreturn]] void Serve(std::ofstream& out) const {
        if (::setuid(kNobody) != 0 || ::listen(listener_, 8) != 0) ::_exit(1);
        out << "listens\n" << std::flush;
        for (;;) {
            const int connection = ::accept(listener_, nullptr, nullptr);
            char chunk[4096];
            for (ssize_t got = 0; (got = ::read(connection, chunk, sizeof(chunk))) > 0;)
                out.write(chunk, got) << std::flush;
            out << "end\n" << std::flush;
            ::close(connection);
        }
    }

    int listener_;
    pid_t child_ = -1;
};

// Behaviour: A member of a group tells nothing to who listens in the service's place: the listener has to be
//   the owner of a directory in which nobody else can put a socket
TEST_F(CommandsOfOthers, AreAskedOfNobodyButTheDirectorysOwner) {
    fs::create_directory(Path("run"));
    fs::permissions(Path("run"), fs::perms{0755});
    const Impostor impostor(Socket(), Path("heard"));
    const Ended ended = As(kAdmin, {"domain", "add", "secret.example", "--user", "anna"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err,
              "zelvek: cannot reach the service: client: connect: " + Socket().string() +
                  ": the service has user id 65534, this process 12345: only a service of the same "
                  "user or of user id 0 is asked\n");
    EXPECT_TRUE(Eventually([&] { return ReadFile(Path("heard")).ends_with("end\n"); }));
    EXPECT_EQ(ReadFile(Path("heard")), "listens\nend\n");
}

// Behaviour: A member of a group tells nothing to who listens in ...
// Where others could have put the directory there, its owner says nothing about the service.
TEST_F(CommandsOfOthers, AreAskedOfNobodyInADirectoryThatOthersCouldHaveMade) {
    fs::create_directory(Path("shared"));
    fs::create_directory(Path("shared/run"));
    fs::permissions(Path("shared"), fs::perms{01777});
    fs::permissions(Path("shared/run"), fs::perms{0755});
    ASSERT_EQ(::chown(Path("shared/run").c_str(), kNobody, kNobody), 0);
    ::setenv("VEK_RUN_DIR", Path("shared/run").c_str(), 1);
    const Impostor impostor(Path("shared/run/zelvek.sock"), Path("heard"));
    const Ended ended = As(kAdmin, {"job", "list"});
    EXPECT_NE(ended.err.find("only a service of the same user is asked"), std::string::npos) << ended.err;
    EXPECT_TRUE(Eventually([&] { return ReadFile(Path("heard")).ends_with("end\n"); }));
    EXPECT_EQ(ReadFile(Path("heard")), "listens\nend\n");
}

}  // namespace

}  // namespace zelvek::testing
