// The commands, with services: a panel on one machine, and the same panel on another.
#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <set>
#include <thread>

#include "integration/zelvek/service.h"
#include "unit/zelvek_parts/authority.h"
#include "unit/zelvek_parts/support.h"
#include "zelvek/certificates/installed.h"
#include "zelvek/store/domains.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

class Move : public ServiceTest {
protected:
    Move() {
        for (const char* name : {"kept", "second"}) fs::create_directory(Path(name));
    }

    static std::map<std::string, std::string> Machine(const fs::path& place) {
        return {{"--database", place / "zelvek.db"},
                {"--certs-dir", place / "certs"},
                {"--answers-dir", place / "answers"}};
    }

    Ended Backup(const std::vector<std::string>& further = {}) {
        return Do("backup", Path("backup"), Path("kept"), further);
    }

    Ended Restore(const fs::path& file, const fs::path& to, const std::vector<std::string>& further = {}) {
        return Do("restore", file, to, further);
    }

    Ended Do(const std::string& command, const fs::path& file, const fs::path& place,
             const std::vector<std::string>& further) {
        std::vector<std::string> words = Words(command, file, place);
        words.insert(words.end(), further.begin(), further.end());
        return Zelvek(words);
    }

    static std::vector<std::string> Words(const std::string& command, const fs::path& file,
                                          const fs::path& place) {
        return {command, file, "--database", place / "zelvek.db", "--certs-dir", place / "certs"};
    }

    /// A job whose run has installed a certificate.
    static std::string AddInstalled(const std::string& name) {
        const std::string id = AddJob({{"domain", name}, {"certname", name}});
        ReadJob(id);
        const parts::Hierarchy pki(parts::KeyKind::kEc, name);
        Ask("func=sslcert.hardreplace&sok=ok", {{"cacrt", pki.intermediate.Pem()},
                                                {"elid", "anna%#%" + name},
                                                {"user", "anna"},
                                                {"crt", pki.leaf.Pem()},
                                                {"key", pki.leaf.KeyPem()}});
        Write(id, {{"verified", "on"}});
        return id;
    }

    /// A shell in which files can have so many bytes, as on a disk that is full.
    Ended OnAFullDisk(std::uintmax_t bytes, const std::vector<std::string>& words) {
        std::vector<std::string> all{
            "/bin/sh", "-c", "trap '' XFSZ; ulimit -f " + std::to_string(bytes / 512) + "; exec \"$@\"", "sh",
            ZELVEK_BINARY};
        all.insert(all.end(), words.begin(), words.end());
        return StartCommand(all)->Wait();
    }

    std::set<std::string> Runs() const {
        std::set<std::string> ids;
        std::ifstream in(Path("log") / "runs");
        for (std::string id, pid; in >> id >> pid;) ids.insert(id);
        return ids;
    }
};

// Behaviours of: Moving to another machine

// Behaviour: On the second machine the service shows every job, issues nothing that is installed, makes
// wanted
//   answers again, and goes on with the job that was running when the backup was made
TEST_F(Move, TheSecondMachineGoesOn) {
    Start(Machine(Path("kept")));
    const std::string first = AddInstalled("one.example");
    const std::string second = AddInstalled("two.example");
    const std::string waiting = AddJob({{"certname", "waits-c"}, {"domain", "three.example"}});
    ReadJob(waiting);
    PublishAnswer("wanted");
    Write(waiting, {{"challenges", "pending"}, {"next_attempt", "2999-01-01 00:00:00"}});
    // Its holder is this process, which lives on the second machine, too.
    const std::string running = AddJob({{"certname", "installs-c"}, {"domain", "four.example"}});
    ReadJob(running);
    const Ended backup = Backup();
    EXPECT_EQ(backup.status, 0) << backup.err;
    EXPECT_THAT(backup.out, HasSubstr("4 jobs, 0 domains, 2 certificates, not encrypted"));
    Kill();

    const Ended restored = Restore(Path("backup"), Path("second"));
    EXPECT_EQ(restored.status, 0) << restored.err;
    EXPECT_THAT(restored.out, HasSubstr("certificates: 2 installed, 0 there already"));
    ::setenv("VEK_RUN_DIR", Path("run2").c_str(), 1);
    auto machine = Machine(Path("second"));
    machine["--scheduler"] = "on";
    machine["--retry-interval"] = "1";
    Start(machine);
    EXPECT_TRUE(Eventually([&] { return Runs().contains(running); }));
    EXPECT_TRUE(Eventually([&] {
        return Zelvek({"job", "show", running, "--json"}).out.find("\"state\":\"verified\"") !=
               std::string::npos;
    }));
    EXPECT_TRUE(Eventually([&] { return fs::exists(Path("second/answers/wanted")); }));
    const std::string list = Zelvek({"job", "list", "--json"}).out;
    for (const char* name : {"one.example", "two.example", "three.example", "four.example"})
        EXPECT_THAT(list, HasSubstr(name));
    EXPECT_FALSE(Runs().contains(first) || Runs().contains(second)) << "their certificates are there";
    EXPECT_THAT(Zelvek({"certificate", "list"}).out, HasSubstr(Path("second/certs/anna/one.example")));
}

// Behaviour: A backup of a service that installs and changes things meanwhile is whole: every job that is in
// it
//   as installed has its certificate in it, too, and what was acknowledged before it began is in it
TEST_F(Move, ABackupFitsTogetherWhileTheServiceWorks) {
    Start(Machine(Path("kept")));
    std::atomic<bool> end{false};
    std::atomic<int> added{0};
    std::thread installer([&] {
        for (int number = 0; !end; ++number) AddInstalled("c" + std::to_string(number) + ".example");
    });
    std::thread writer([&] {
        for (; !end; ++added)
            Ask("func=zelvek.domain.add",
                {{"name", "d" + std::to_string(added) + ".example"}, {"user_name", "bob"}});
    });
    EXPECT_TRUE(Eventually([&] { return added > 5; }));
    for (int round = 0; round < 4; ++round) {
        const int before = added;
        const Ended backup = Backup({"--force"});
        EXPECT_EQ(backup.status, 0) << backup.err;
        EXPECT_THAT(backup.out, Not(HasSubstr("not there")));
        const fs::path place = Path("place" + std::to_string(round));
        fs::create_directory(place);
        const Ended restored = Restore(Path("backup"), place);
        EXPECT_EQ(restored.status, 0) << restored.err;
        EXPECT_THAT(restored.out, Not(HasSubstr("not there")));
        SQLite::Database database((place / "zelvek.db").string());
        EXPECT_GE(database.execAndGet("SELECT count(*) FROM domain").getInt(), before);
        SQLite::Statement names(database, "SELECT certname FROM job WHERE verified = 1");
        while (names.executeStep()) {
            const std::string name = names.getColumn(0).getString();
            EXPECT_TRUE(install::ReadInstalled({place / "certs"}, {"anna", name})) << name;
        }
    }
    end = true;
    installer.join();
    writer.join();
}

// Behaviour: A file that is there is not replaced by a backup unless that is asked for, and a backup's file
// is
//   readable by its owner alone
TEST_F(Move, ABackupReplacesNoFile) {
    Start(Machine(Path("kept")));
    std::ofstream(Path("backup")) << "precious";
    const Ended refused = Backup();
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, HasSubstr("is there already; --force replaces it"));
    EXPECT_EQ(ReadFile(Path("backup")), "precious");
    EXPECT_EQ(Backup({"--force"}).status, 0);
    EXPECT_EQ(parts::Mode(Path("backup")), 0600U);
    EXPECT_EQ(Backup({"--force", "--json"}).out.substr(0, 18), "{\"certificates\":0,");
}

// Behaviour: A backup is made of a panel whose service does not run, too
TEST_F(Move, ABackupNeedsNoService) {
    Start(Machine(Path("kept")));
    AddInstalled("one.example");
    Kill();  // what it has written stands in the engine's log alone
    EXPECT_THAT(Backup().out, HasSubstr("1 jobs, 0 domains, 1 certificates"));
    EXPECT_EQ(Restore(Path("backup"), Path("second")).status, 0);
}

// Behaviour: On a full disk a backup leaves no part of itself, and a restoration changes nothing and can be
//   repeated
TEST_F(Move, AFullDiskLeavesNothingHalf) {
    Start(Machine(Path("kept")));
    for (int number = 0; number < 3; ++number) AddInstalled("c" + std::to_string(number) + ".example");
    Stop();
    EXPECT_EQ(Backup().status, 0);
    const auto whole = fs::file_size(Path("backup"));
    fs::remove(Path("backup"));
    const auto names = [&](const fs::path& folder) {
        std::set<std::string> found;
        for (const auto& entry : fs::directory_iterator(folder)) {
            const std::string name = entry.path().filename();
            if (!name.starts_with("command-") && !name.starts_with("zelvek.db-")) found.insert(name);
        }
        return found;
    };
    const auto before = names(Path(""));
    const auto kept = names(Path("kept"));
    for (const std::uintmax_t limit : {whole / 2, whole - 15000}) {
        const Ended full = OnAFullDisk(limit, Words("backup", Path("backup"), Path("kept")));
        EXPECT_EQ(full.status, 1) << full.out;
        EXPECT_NE(full.err, "");
        EXPECT_EQ(names(Path("")), before) << limit;
        EXPECT_EQ(names(Path("kept")), kept) << limit;
    }
    EXPECT_EQ(Backup().status, 0);
    const Ended full = OnAFullDisk(whole / 2, Words("restore", Path("backup"), Path("second")));
    EXPECT_EQ(full.status, 1) << full.out;
    EXPECT_TRUE(fs::is_empty(Path("second")));
    EXPECT_EQ(Restore(Path("backup"), Path("second")).status, 0);
}

// Behaviour: A restoration that was killed at any time is repeated as if it had never been begun
TEST_F(Move, AKilledRestorationIsRepeated) {
    Start(Machine(Path("kept")));
    for (int number = 0; number < 20; ++number) AddInstalled("c" + std::to_string(number) + ".example");
    Stop();
    EXPECT_EQ(Backup().status, 0);
    bool done = false;
    int killed = 0;
    for (int pause = 0; !done; pause += 5) {
        std::vector<std::string> words = Words("restore", Path("backup"), Path("second"));
        words.insert(words.begin(), ZELVEK_BINARY);
        const auto command = StartCommand(words);
        std::this_thread::sleep_for(std::chrono::milliseconds(pause));
        command->Signal(SIGKILL);
        const Ended ended = command->Wait();
        if (ended.status == 128 + SIGKILL) ++killed;
        // Killed after its last step, or not before its end.
        done = ended.status == 0 ||
               (fs::exists(Path("second/zelvek.db")) && fs::file_size(Path("second/zelvek.db")) > 0);
        EXPECT_TRUE(ended.status == 0 || ended.status == 128 + SIGKILL) << ended.err;
    }
    EXPECT_GT(killed, 0);
    if (fs::file_size(Path("second/zelvek.db")) > 0) {
        EXPECT_THAT(Restore(Path("backup"), Path("second")).err, HasSubstr("has 20 jobs"));
    }
    const Ended last = Restore(Path("backup"), Path("second"), {"--force"});
    EXPECT_THAT(last.out, HasSubstr("certificates: 0 installed, 20 there already"));
    for (const auto& entry : fs::directory_iterator(Path("second")))
        EXPECT_THAT(entry.path().filename().string(), Not(HasSubstr("moving")));
}

// Behaviour: Root's backup is root's file of the service's user's panel, and root's restoration belongs to
// that
//   user
TEST_F(Move, RootMovesAnotherUsersPanel) {
    ASSERT_EQ(::geteuid(), 0U) << "needs root";
    fs::permissions(Path(""), fs::perms{0755});
    for (const char* name : {"kept", "second"}) {
        ASSERT_EQ(::chown(Path(name).c_str(), kNobody, kNobody), 0);
        fs::permissions(Path(name), fs::perms{0755});
    }
    const fs::path database = Path("kept/zelvek.db");
    ASSERT_EQ(InChild([&] {
                  if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) throw std::runtime_error("user");
                  const parts::Hierarchy pki;
                  install::Install(
                      {database.parent_path() / "certs"},
                      {"anna", "shop.example", pki.leaf.Pem() + pki.intermediate.Pem(), pki.leaf.KeyPem()});
                  Store store(database);
                  Transaction transaction(store);
                  domains::Add(transaction, {0, "shop.example", "shop.example", "anna"});
                  transaction.Commit();
              }),
              0);
    fs::create_directory(Path("roots"));
    fs::permissions(Path("roots"), fs::perms{0700});
    const Ended made = Do("backup", Path("roots/backup"), Path("kept"), {});
    EXPECT_EQ(made.out,
              "0 jobs, 1 domains, 1 certificates, not encrypted, in " + Path("roots/backup").string() + "\n")
        << made.err;
    EXPECT_EQ(
        Zelvek({"backup", Path("roots/none"), "--database", database, "--certs-dir", Path("none")}).status,
        1);
    EXPECT_EQ(parts::Entries(Path("roots")), std::vector<std::string>{"backup"});
    const Ended restored = Restore(Path("roots/backup"), Path("second"));
    EXPECT_EQ(restored.status, 0) << restored.err;
    struct stat status {};
    ASSERT_EQ(::stat(Path("roots/backup").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 0U);
    for (const char* name : {"second/zelvek.db", "second/certs/anna/shop.example/privkey.pem"}) {
        ASSERT_EQ(::stat(Path(name).c_str(), &status), 0) << name;
        EXPECT_EQ(status.st_uid, kNobody) << name;
        EXPECT_EQ(status.st_mode & 0777U, 0600U) << name;
    }
}

// Behaviour: Where everything lies is read from the service's file of options
TEST_F(Move, PlacesAreReadFromTheServicesOptions) {
    Start(Machine(Path("kept")));
    std::ofstream(Path("conf")) << "database=" << Path("kept/zelvek.db").string()
                                << "\ncerts-dir=" << Path("kept/certs").string() << "\n";
    const Ended made = Zelvek({"backup", Path("backup"), "--config", Path("conf")});
    EXPECT_EQ(made.status, 0) << made.err;
    EXPECT_EQ(Zelvek({"backup", Path("other"), "--config", Path("missing")}).status, 2);
    EXPECT_EQ(Zelvek({"backup"}).status, 1);
    EXPECT_EQ(Zelvek({"backup", "--new-key", Path("key")}).status, 0);
    EXPECT_EQ(Backup({"--force", "--key-file", Path("key")}).status, 0);
    const Ended closed = Restore(Path("backup"), Path("second"));
    EXPECT_EQ(closed.status, 1);
    EXPECT_THAT(closed.err, HasSubstr("the backup is encrypted"));
    EXPECT_EQ(Restore(Path("backup"), Path("second"), {"--key-file", Path("key")}).status, 0);
    EXPECT_THAT(Restore(Path("backup"), Path("nowhere"), {"--key-file", Path("key")}).err,
                HasSubstr("there is no folder"));
}

}  // namespace

}  // namespace zelvek::testing
