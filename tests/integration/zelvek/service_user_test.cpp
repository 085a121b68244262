// Root's commands and another user's service. Root is needed: nobody else can act as two users.
#include "zelvek/base/service_user.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "service.h"
#include "zelvek/base/error.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;

constexpr uid_t kOtherUser = 12345;

void Give(const fs::path& path, uid_t user) {
    if (::lchown(path.c_str(), user, user) != 0)
        throw std::runtime_error("cannot give away " + path.string());
}

class ServiceUser : public ServiceTest {
protected:
    void SetUp() override {
        ASSERT_EQ(::geteuid(), 0U) << "needs root";
        fs::permissions(Path(""), fs::perms{0755});
        fs::create_directory(Path("bin"));
        fs::copy_file(ZELVEK_BINARY, Path("bin/zelvek"));
        fs::copy_file(TEST_PLUGIN, Path("bin/plugin"));
        for (const char* name : {"run", "kept"}) {
            fs::create_directory(Path(name));
            fs::permissions(Path(name), fs::perms{0700});
        }
        for (const char* name : {"run", "kept", "log"}) Give(Path(name), kNobody);
    }

    static std::vector<std::string> As(uid_t user, std::vector<std::string> words) {
        const std::string id = std::to_string(user);
        const std::vector<std::string> before{"/usr/bin/setpriv", "--reuid=" + id, "--regid=" + id,
                                              "--clear-groups"};
        words.insert(words.begin(), before.begin(), before.end());
        return words;
    }

    /// The service as another user's process.
    void StartAs(uid_t user) {
        other_ = StartCommand(
            As(user, {Path("bin/zelvek"), "serve", "--database", Path("kept/zelvek.db"), "--answers-dir",
                      Path("kept/answers"), "--certs-dir", Path("kept/certs"), "--scheduler", "off"}));
        ASSERT_TRUE(Eventually([&] { return other_->Out() == "zelvek: ready\n" || !other_->Running(); }));
        ASSERT_TRUE(other_->Running()) << other_->Err();
    }

    Ended Try(const std::vector<std::string>& words) { return StartCommand(words)->Wait(); }

    /// Why a path to a directory is not safe; empty where it is, and the owner is nobody.
    static std::string Fault(const fs::path& directory) {
        try {
            EXPECT_EQ(OwnerOnSafePath(directory), kNobody);
            return "";
        } catch (const Error& error) {
            return error.what();
        }
    }

    std::unique_ptr<Command> other_;
};

// Behaviours of: Command line

// Behaviour: Root's command asks another user's service as that user, and runs its plug-in as that user
TEST_F(ServiceUser, IsWhoRootsCommandsActAs) {
    StartAs(kNobody);
    const Ended added =
        Zelvek({"job", "add", "shop.example", "--user", "anna", "--certname", "installs", "--foreign-names"});
    EXPECT_EQ(added.out, "job 1 added\n") << added.err;
    const Ended run = Zelvek({"job", "run", "1", "--plugin", Path("bin/plugin")});
    EXPECT_EQ(run.status, 0) << run.err;
    struct stat status {};
    ASSERT_EQ(::stat(Path("log/runs").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, kNobody) << "made by the plug-in";
    EXPECT_EQ(status.st_gid, kNobody);
    EXPECT_EQ(Try(As(kNobody, {Path("bin/zelvek"), "job", "show", "1"})).status, 0) << "as that user itself";
}

// Behaviour: Root's check of the options and root's doctor find what the service may use, its own key file
// too
TEST_F(ServiceUser, IsWhoseOptionsRootsCommandsLookAt) {
    std::ofstream(Path("dns.key"))
        << R"(key "panel" { algorithm hmac-sha256; secret "MTIzNDU2Nzg5MDEyMzQ1Ng=="; };)";
    fs::permissions(Path("dns.key"), fs::perms{0600});
    std::ofstream(Path("conf")) << "database=" << Path("kept/zelvek.db").string()
                                << "\nplugin=" << Path("bin/plugin").string()
                                << "\npublic-resolvers=off\ndns-server=127.0.0.1\ndns-zone=shop.example"
                                << "\ndns-key-file=" << Path("dns.key").string() << "\n";
    EXPECT_EQ(Zelvek({"config", "check", "--config", Path("conf")}).status, 1)
        << "root's is not the service's";
    Give(Path("dns.key"), kNobody);
    const Ended checked = Zelvek({"config", "check", "--config", Path("conf")});
    EXPECT_EQ(checked.status, 0) << checked.err;
    const std::string found = Zelvek({"doctor", "--config", Path("conf")}).out;
    EXPECT_NE(found.find("fine   configuration"), std::string::npos) << found;
}

// Behaviour: A third user's command does not reach the service, or is told nothing, and says so
TEST_F(ServiceUser, AloneReachesTheService) {
    StartAs(kNobody);
    const Ended ended = Try(As(kOtherUser, {Path("bin/zelvek"), "job", "list"}));
    EXPECT_EQ(ended.status, 5);
    EXPECT_TRUE(ended.err.starts_with("zelvek: cannot reach the service: client: connect: " +
                                      Socket().string() + ": Permission denied; this needs root, "))
        << ended.err;
    fs::permissions(Path("run"), fs::perms{0755});
    fs::permissions(Socket(), fs::perms{0666});
    EXPECT_EQ(Try(As(kOtherUser, {Path("bin/zelvek"), "job", "list"})).err,
              "zelvek: this service answers processes of user id 65534 alone, and this one has user id "
              "12345\n");
}

// Behaviour: Root's command is refused where others could have changed which directory it looks into
TEST_F(ServiceUser, IsNotTakenFromAPathThatOthersCanChange) {
    fs::create_directory(Path("kept/run"));
    Give(Path("kept/run"), kNobody);
    ::setenv("VEK_RUN_DIR", Path("kept/run").c_str(), 1);
    const Ended ended = Zelvek({"job", "list"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err,
              "zelvek: " + Path("kept").string() +
                  " belongs to user id 65534, so that root cannot tell whose service it asks; run the "
                  "command as the service's user\n");
}

// Behaviour: Root's command is refused where others ...
TEST_F(ServiceUser, IsTakenFromAPathThatRootAloneCanChange) {
    EXPECT_EQ(Fault(Path("run")), "");
    EXPECT_EQ(Fault(Path("bin/../run")), "");
    fs::create_directory_symlink(Path("bin"), Path("link"));
    fs::create_directory_symlink("link/..", Path("bin/back"));
    EXPECT_NE(Fault(Path("bin/back/run")), "") << "there is no bin/link";
    fs::create_directory_symlink("../link/..", Path("bin/up"));
    EXPECT_EQ(Fault(Path("bin/up/run")), "") << "by links of root's";

    fs::permissions(Path("bin"), fs::perms{01777});
    EXPECT_EQ(Fault(Path("bin/../run")), "") << "sticky";
    fs::create_directory(Path("bin/own"));
    Give(Path("bin/own"), kNobody);
    EXPECT_NE(Fault(Path("bin/own")).find("bin can be written by others than root"), std::string::npos)
        << "anybody could have made it there";
    Give(Path("bin/up"), kNobody);
    EXPECT_NE(Fault(Path("bin/up/run")).find("up belongs to user id 65534"), std::string::npos);
    for (const int mode : {0777, 0775, 0757}) {
        fs::permissions(Path("bin"), static_cast<fs::perms>(mode));
        EXPECT_NE(Fault(Path("bin/../run")).find("bin can be written by others than root"),
                  std::string::npos);
    }
}

// Behaviour: Root's command is refused where others ...
TEST_F(ServiceUser, IsTakenFromADirectoryAndNoLinkToOne) {
    fs::create_directory_symlink(Path("run"), Path("link"));
    EXPECT_NE(Fault(Path("link")).find("link is a symbolic link"), std::string::npos);
    fs::create_symlink("turn", Path("turn"));
    EXPECT_NE(Fault(Path("turn/run")).find("Too many levels"), std::string::npos);
    EXPECT_NE(Fault(Path("bin/plugin")).find("plugin is no directory"), std::string::npos);
    EXPECT_NE(Fault(Path("bin/plugin/run")).find("plugin is no directory"), std::string::npos);
    EXPECT_NE(Fault(Path("bin/..")).find("is not named by a name"), std::string::npos);
    EXPECT_NE(Fault("/").find("is not named by a name"), std::string::npos);
}

// Behaviour: A user that the machine does not know is nobody whom root could act as
TEST_F(ServiceUser, IsKnownToTheMachine) {
    Give(Path("run"), kOtherUser);
    EXPECT_EQ(
        Zelvek({"job", "list"}).err,
        "zelvek: the service's user, id 12345, is not known to this machine, so that root cannot act as that "
        "user\n");
}

// Behaviour: The service leaves no core file ...
// What /proc shows of a process that is not dumpable is root's.
TEST_F(ServiceUser, HasAServiceThatIsNotDumpable) {
    StartAs(kNobody);
    struct stat status {};
    ASSERT_EQ(::stat(("/proc/" + std::to_string(other_->pid()) + "/fd").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 0U);
}

}  // namespace

}  // namespace zelvek::testing
