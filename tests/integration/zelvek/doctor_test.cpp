// What the doctor finds on a machine, of a service and of what lies around it.
#include "zelvek/doctor/doctor_command.h"

#include <json/json.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <fstream>
#include <map>
#include <memory>

#include "service.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"
#include "zelvek/doctor/machine.h"
#include "zelvek/doctor/network.h"
#include "zelvek/store/integrity.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;
using doctor::Check;

class Doctor : public ServiceTest {
protected:
    /// What it says with the options of the running service, by what it is about.
    std::map<std::string, Json::Value> Examine(const std::string& further_options = "") {
        std::ofstream(Path("conf")) << "database=" << Database().string()
                                    << "\nanswers-dir=" << Path("answers").string()
                                    << "\ncerts-dir=" << Path("certs").string() << "\nplugin=" << TEST_PLUGIN
                                    << "\npublic-resolvers=off\n"
                                    << further_options;
        const Ended ended = Zelvek({"doctor", "--config", Path("conf"), "--json"});
        Json::Value list;
        std::string errors;
        const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        EXPECT_TRUE(reader->parse(ended.out.data(), ended.out.data() + ended.out.size(), &list, &errors))
            << ended.err;
        std::map<std::string, Json::Value> found;
        bool wrong = false;
        for (const Json::Value& entry : list) {
            found[entry["check"].asString()] = entry;
            wrong = wrong || entry["state"].asString() == "wrong";
            EXPECT_EQ(entry["help"].isNull(), entry["state"].asString() == "fine" || entry["help"].isNull());
        }
        EXPECT_EQ(ended.status, wrong ? 1 : 0);
        return found;
    }

    static std::string StateIn(const std::map<std::string, Json::Value>& found, const std::string& about) {
        const auto entry = found.find(about);
        return entry == found.end() ? "not looked at" : entry->second["state"].asString();
    }
};

// Behaviours of: Command line

// Behaviour: The doctor looks at everything that certificates need, a line each, and says what to do
TEST_F(Doctor, FindsTheServiceAndItsPlacesInOrder) {
    Start();
    const auto found = Examine();
    for (const char* about : {"configuration", "service", "expiry", "answers folder", "certificates folder",
                              "disk", "database", "integrity"})
        EXPECT_EQ(StateIn(found, about), "fine") << about;
    EXPECT_EQ(StateIn(found, "notices"), "note");
}

// Behaviour: The doctor works without a service, and says that none answers
TEST_F(Doctor, WorksWithoutAService) {
    Start();
    Stop();
    const auto found = Examine();
    EXPECT_EQ(StateIn(found, "service"), "wrong");
    EXPECT_EQ(StateIn(found, "integrity"), "fine");
}

// Behaviour: The doctor says that a name's web server does not serve the answers, and leaves nothing behind
TEST_F(Doctor, LooksForAnswersAtTheNamesOfJobs) {
    Start();
    Zelvek({"domain", "add", "localhost", "--user", "anna"});
    Zelvek({"job", "add", "localhost", "--user", "anna"});
    const auto found = Examine();
    EXPECT_NE(StateIn(found, "answers at localhost"), "not looked at");
    EXPECT_TRUE(fs::is_empty(Path("answers")));
}

// Behaviour: The doctor names a mail server that does not answer, and zones that take no record
TEST_F(Doctor, TriesMailAndNameServers) {
    Start();
    const auto found = Examine(
        "notify-mail=admin@shop.example\nnotify-smtp=smtp://127.0.0.1:1\n"
        "dns-server=127.0.0.1\ndns-port=1\ndns-zone=shop.example\n");
    EXPECT_EQ(StateIn(found, "mail"), "wrong");
    EXPECT_EQ(StateIn(found, "records of shop.example"), "wrong");
    EXPECT_EQ(StateIn(Examine("notify-mail=admin@shop.example\nnotify-sendmail=/bin/true\n"), "mail"),
              "fine");
}

// Behaviour: The doctor finds a damaged database
TEST_F(Doctor, FindsADamagedDatabase) {
    Start();
    for (int i = 0; i < 200; ++i)
        AddJob({{"domain", "shop" + std::to_string(i) + ".example"}, {"user_name", "anna"}});
    Stop();
    EXPECT_EQ(DamageOf(Database()), "");
    std::fstream file(Database(), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(8192);
    file << std::string(32768, '\x55');
    file.close();
    EXPECT_NE(DamageOf(Database()), "");
    EXPECT_THROW(DamageOf(Path("missing")), Error);
}

// Behaviour: The doctor tells missing programs, folders that cannot be written, and secrets that others can
// read
TEST_F(Doctor, LooksAtProgramsFoldersAndSecrets) {
    EXPECT_EQ(doctor::Tools({"sh"}).state, Check::State::kFine);
    EXPECT_EQ(doctor::Tools({"sh", "no-such-program"}).said, "not found: no-such-program");
    EXPECT_EQ(doctor::WritableFolder("folder", Path("missing")).state, Check::State::kWrong);
    fs::create_directory(Path("folder"));
    EXPECT_EQ(doctor::WritableFolder("folder", Path("folder")).state, Check::State::kFine);
    EXPECT_EQ(doctor::Disk("disk", Path("folder")).state, Check::State::kFine);
    std::ofstream(Path("key")) << "secret";
    fs::permissions(Path("key"), fs::perms{0640});
    EXPECT_EQ(doctor::SecretFile("key", Path("key")).state, Check::State::kWrong);
    fs::permissions(Path("key"), fs::perms{0600});
    EXPECT_EQ(doctor::SecretFile("key", Path("key")).state, Check::State::kFine);
    EXPECT_EQ(doctor::SecretFile("key", Path("missing")).state, Check::State::kWrong);
}

// Behaviour: The doctor tells whether a server listens at a port of this machine
TEST_F(Doctor, LooksForListeners) {
    const Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    ASSERT_EQ(::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
    ASSERT_EQ(::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    EXPECT_EQ(doctor::Listening(ntohs(address.sin_port), "start it").help, "start it") << "it is bound alone";
    ASSERT_EQ(::listen(listener.get(), 1), 0);
    EXPECT_EQ(doctor::Listening(ntohs(address.sin_port), "").state, Check::State::kFine);
}

// Behaviour: A clock that differs from the authority's by minutes is told, one by an hour is wrong
TEST_F(Doctor, ComparesClocks) {
    EXPECT_EQ(doctor::Clock("ambrin", 59).state, Check::State::kFine);
    EXPECT_EQ(doctor::Clock("ambrin", -59).state, Check::State::kFine);
    EXPECT_EQ(doctor::Clock("ambrin", 61).said, "this machine's clock is 61 seconds ahead of that of ambrin");
    EXPECT_EQ(doctor::Clock("ambrin", -61).said, "this machine's clock is 61 seconds behind that of ambrin");
    EXPECT_EQ(doctor::Clock("ambrin", 3599).state, Check::State::kNote);
    EXPECT_EQ(doctor::Clock("ambrin", -3600).state, Check::State::kWrong);
}

}  // namespace

}  // namespace zelvek::testing
