// A service that reads its options again while it runs.
#include <SQLiteCpp/Database.h>
#include <gmock/gmock.h>

#include <csignal>
#include <fstream>

#include "service.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

class ReloadOptions : public ServiceTest {
protected:
    /// Starts a service that has these lines, besides the usual options on its command line.
    void StartWith(const std::string& lines) {
        Write(lines);
        Start({{"--config", Path("conf")},
               {"--scheduler", ""},
               {"--dns-records-file", ""},
               {"--public-resolvers", ""}});
        // Without one, the first job's run would hold the others back.
        SQLite::Database(Database().string(), SQLite::OPEN_READWRITE, 10'000)
            .exec(
                "INSERT INTO account (id, kid, acmekey, modulus) VALUES (77, 'https://ca.example/1', 'k', "
                "'m');"
                "INSERT INTO setting (name, value) VALUES ('default_account', '77')");
    }

    void Write(const std::string& lines) const { std::ofstream(Path("conf")) << lines; }

    /// Has the service read them again, until it says what came of it.
    void Reload(const std::string& lines) {
        Write(lines);
        const std::size_t before = service().Err().size();
        service().Signal(SIGHUP);
        ASSERT_TRUE(Eventually([&] {
            const std::string said = service().Err().substr(before);
            return said.find("options read again") != std::string::npos ||
                   said.find("the old ones go on") != std::string::npos;
        })) << service().Err();
    }

    std::string SchedulerState() { return Zelvek({"status", "--json"}).out; }

    std::string Add(const std::string& certname) { return AddJob({{"certname", certname}}); }

    static std::string Value(const std::string& id, const std::string& key) {
        return Ask("func=zelvek.job.show&elid=" + id).value(key);
    }

    std::string File(const std::string& name) const { return Path(name).string(); }

    static void PublishRecord(const std::string& value) {
        Ask("func=domain.record.edit&sok=ok&su=anna&plid=shop.example&rtype=txt"
            "&name=_acme-challenge.shop.example.",
            {{"value", value}});
    }
};

// Behaviours of: Start and store

// Behaviour: After SIGHUP a running service goes by the options as its files have them then, the command line
//   still first
TEST_F(ReloadOptions, TakeEffectAfterTheSignal) {
    const std::string same = "retry-interval=3600\ndns-records-file=";
    StartWith("scheduler=off\n" + same + File("records") + "\n");
    Zelvek({"domain", "add", "shop.example", "--user", "anna"});
    PublishRecord("first");
    const std::string id = Add("installs-1");
    EXPECT_THAT(SchedulerState(), HasSubstr("\"scheduler\":false"));
    Reload("scheduler=on\nsweep-interval=3600\n" + same + File("records-2") + "\nreload-command=touch " +
           File("reloaded") + "\n");
    EXPECT_THAT(service().Err(),
                HasSubstr("options read again, taken over: dns-records-file, reload-command, scheduler\n"));
    EXPECT_TRUE(Eventually([&] { return Value(id, "verified") == "on"; })) << service().Err();
    EXPECT_THAT(SchedulerState(), HasSubstr("\"scheduler\":true"));
    PublishRecord("second");
    EXPECT_THAT(ReadFile(Path("records")), HasSubstr("first"));
    EXPECT_THAT(ReadFile(Path("records-2")), HasSubstr("second"));
    Reload("scheduler=on\nsweep-interval=3600\n" + same + File("records-2") + "\nreload-command=touch " +
           File("reloaded") + "\n");
    EXPECT_THAT(service().Err(), HasSubstr("options read again: none has changed\n"));
}

// Behaviour: A run under way keeps the options with which it began, whatever a reload changes for later ones
TEST_F(ReloadOptions, ARunUnderWayKeepsItsOptions) {
    StartWith("scheduler=on\nruns-at-once=4\n");
    const std::string old_one = Add("hangs-1");
    ASSERT_TRUE(Eventually([&] { return Value(old_one, "processing") == "on"; }));
    ASSERT_TRUE(Eventually([&] { return !ReadFile(Path("log") / "runs").empty(); }));
    Reload("scheduler=on\nruns-at-once=4\nrun-limit=1\n");
    const std::string new_one = Add("hangs-2");
    EXPECT_TRUE(Eventually([&] {
        return service().Err().find("job " + new_one + ": the run takes too long") != std::string::npos;
    })) << service().Err();
    Reload("scheduler=off\n");
    EXPECT_EQ(Value(old_one, "processing"), "on");
    EXPECT_THAT(service().Err(), Not(HasSubstr("job " + old_one + ": the run takes too long")));
    const std::string later = Add("installs-3");
    EXPECT_THAT(SchedulerState(), HasSubstr("\"scheduler\":false"));
    EXPECT_EQ(Value(later, "attempt_count"), "0");
}

// Behaviour: Options that cannot be used change nothing when a running service reads them: one line of its
//   log says why, with file and line
TEST_F(ReloadOptions, ThatCannotBeUsedChangeNothing) {
    StartWith("scheduler=off\n");
    const std::string id = Add("installs-1");
    const auto refused = [&](const std::string& lines, const std::string& why) {
        Reload("scheduler=on\n" + lines + "\n");
        EXPECT_THAT(
            service().Err(),
            HasSubstr("the options cannot be used, the old ones go on: " + File("conf") + ":2: " + why));
        EXPECT_THAT(SchedulerState(), HasSubstr("\"scheduler\":false"));
    };
    refused("runs-at-once=many", "--runs-at-once: ");
    refused("notify-mail=nobody", "--notify-mail: \"nobody\" is no address");
    refused("public-resolvers=nowhere", "\"nowhere\" is no address");
    refused("no-such-option=1", "there is no option \"no-such-option\"");
    refused("dns-server=127.0.0.1\ndns-zone=shop.example\ndns-key-file=" + File("no.key"), "");
    fs::remove(Path("conf"));
    service().Signal(SIGHUP);
    EXPECT_TRUE(Eventually([&] {
        return service().Err().find("old ones go on: --config: File does not exist") != std::string::npos;
    })) << service().Err();
    EXPECT_EQ(Value(id, "attempt_count"), "0");
}

// Behaviour: Options that take effect at a start alone are named when a running service reads them, and stay
//   as they were
TEST_F(ReloadOptions, OfAStartWaitForTheNextOne) {
    StartWith("authorities-dir=" + File("old") + "\nscheduler=off\n");
    Reload("authorities-dir=" + File("new") + "\nhttp-responder=127.0.0.1:1\nscheduler=off\n");
    EXPECT_THAT(service().Err(),
                HasSubstr("authorities-dir, http-responder have changed: takes effect at the next start\n"));
    Reload("authorities-dir=" + File("old") + "\nhttp-responder=127.0.0.1:1\nscheduler=off\n");
    EXPECT_THAT(service().Err(), HasSubstr(" http-responder has changed: takes effect at the next start\n"))
        << "as long as it is another one";
    Reload("authorities-dir=" + File("old") + "\nscheduler=off\n");
    EXPECT_THAT(service().Err(), HasSubstr("options read again: none has changed\n"));
}

}  // namespace

}  // namespace zelvek::testing
