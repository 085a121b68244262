#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "integration/zelvek_parts/name_server.h"
#include "zelvek/publishing/dns_backends.h"

namespace {

using parts::Failure;
using parts::FailureOf;
using parts::NameServer;
using parts::TypeOf;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using zelvek::dns::Backend;
using zelvek::dns::MakeBackend;
using zelvek::dns::Settings;

const std::string kZone = "example.test";

/// One name server for all tests; each uses a name of its own.
class DynamicUpdate : public testing::Test {
protected:
    static void SetUpTestSuite() { server_ = std::make_unique<NameServer>(); }
    static void TearDownTestSuite() { server_.reset(); }

    static Settings Good() {
        return {{"dns-server", "127.0.0.1"},
                {"dns-port", server_->port()},
                {"dns-key-file", server_->key()},
                {"dns-zone", std::vector<std::string>{kZone, "static.test", "elsewhere.test"}},
                {"dns-ttl", 17}};
    }

    static std::string Address() { return "127.0.0.1:" + std::to_string(server_->port()); }

    static std::unique_ptr<NameServer> server_;
    std::unique_ptr<Backend> backend_ = MakeBackend(Good());
};

std::unique_ptr<NameServer> DynamicUpdate::server_;

// Behaviours of: Domains and TXT records (domain, domain.record.edit, domain.record.delete)

// Behaviour: A dynamic update adds a value with its time to live, beside others, and removes just that value
TEST_F(DynamicUpdate, AddsAValueWithItsTimeToLive) {
    backend_->AddTxt(kZone, "_acme-challenge.add.example.test.", "value-1_A");
    EXPECT_EQ(server_->Txt("_acme-challenge.add.example.test"), "\"value-1_A\"\n");
    EXPECT_EQ(server_->Ttl("_acme-challenge.add.example.test"), "17");
}

// Behaviour: How long others remember that a record was not there is asked of the zone's own server: the
// smaller
//   of its SOA record's time and that record's last field
TEST_F(DynamicUpdate, KnowsTheZonesNegativeCachingTime) {
    EXPECT_EQ(backend_->NegativeTtl(kZone), std::chrono::seconds{45});
    EXPECT_THROW(backend_->NegativeTtl("elsewhere.test"), zelvek::Error);
}

// Behaviour: A dynamic update adds a value with its time ...
TEST_F(DynamicUpdate, KeepsSeveralValuesOfAName) {
    const std::string name = "_acme-challenge.several.example.test.";
    backend_->AddTxt(kZone, name, "one");
    backend_->AddTxt(kZone, name, "two");
    EXPECT_EQ(server_->Txt(name), "\"one\"\n\"two\"\n");
    backend_->RemoveTxt(kZone, name, "one");
    EXPECT_EQ(server_->Txt(name), "\"two\"\n");
}

// Behaviour: An existing value is "exists", whoever put it there
TEST_F(DynamicUpdate, SaysThatAValueIsThereWhoeverPutIt) {
    const std::string name = "_acme-challenge.exists.example.test";
    MakeBackend(Good())->AddTxt(kZone, name, "value");
    EXPECT_EQ(TypeOf([&] { backend_->AddTxt(kZone, name + ".", "value"); }), "exists");
    EXPECT_EQ(
        TypeOf([&] { backend_->AddTxt("Example.TEST.", "_ACME-Challenge.exists.example.test", "value"); }),
        "exists");
    EXPECT_EQ(TypeOf([&] { backend_->AddTxt(kZone, name, "VALUE"); }), "none");
    EXPECT_EQ(server_->Txt(name), "\"VALUE\"\n\"value\"\n");
}

// Behaviour: A dynamic update adds a value with its time ...
TEST_F(DynamicUpdate, RemovingWhatIsNotThereSucceeds) {
    const std::string name = "_acme-challenge.missing.example.test.";
    EXPECT_EQ(TypeOf([&] { backend_->RemoveTxt(kZone, name, "value"); }), "none");
    EXPECT_EQ(TypeOf([&] { backend_->RemoveTxt(kZone, "_acme-challenge.other.example.", "value"); }), "none");
    backend_->AddTxt(kZone, name, "value");
    backend_->RemoveTxt(kZone, name, "value");
    EXPECT_EQ(TypeOf([&] { backend_->RemoveTxt(kZone, name, "value"); }), "none");
    EXPECT_EQ(server_->Txt(name), "");
}

// Behaviour: Any printable value arrives unchanged
TEST_F(DynamicUpdate, AnyPrintableValueArrivesUnchanged) {
    const std::string name = "_acme-challenge.odd.example.test.";
    for (const std::string& value : {std::string("a \"quoted\" text"), std::string("back\\slash \\123"),
                                     std::string("semi;colon $x @y (z) 'q'"), std::string(255, 'x')}) {
        backend_->AddTxt(kZone, name, value);
        EXPECT_EQ(TypeOf([&] { backend_->AddTxt(kZone, name, value); }), "exists") << value;
        backend_->RemoveTxt(kZone, name, value);
        EXPECT_EQ(server_->Txt(name), "") << value;
    }
}

// Behaviour: A record's name may be the zone itself, or begin with a star
TEST_F(DynamicUpdate, NameMayBeTheZoneItselfOrBeginWithAStar) {
    backend_->AddTxt(kZone, kZone, "apex");
    EXPECT_EQ(server_->Txt(kZone), "\"apex\"\n");
    backend_->RemoveTxt(kZone, kZone, "apex");
    backend_->AddTxt(kZone, "*.star.example.test.", "star");
    EXPECT_EQ(server_->Txt("anything.star.example.test"), "\"star\"\n");
    EXPECT_EQ(TypeOf([&] { backend_->AddTxt(kZone, "*.star.example.test", "star"); }), "exists");
}

// Behaviour: Names and values that are none, or would ...
TEST_F(DynamicUpdate, CommandsInNamesAndValuesAreRefused) {
    EXPECT_EQ(TypeOf([&] { backend_->AddTxt(kZone, "x.example.test. 60 TXT y\nsend\n", "v"); }), "value");
    EXPECT_EQ(
        TypeOf([&] { backend_->AddTxt(kZone, "x.example.test", "v\"\nupdate add y.example.test 60 TXT z"); }),
        "value");
    EXPECT_EQ(TypeOf([&] { backend_->AddTxt(kZone, "_acme-challenge.notexample.test", "v"); }), "value");
    EXPECT_EQ(server_->Txt("y.example.test"), "");
}

// Behaviour: A refused key, a foreign or static zone ...
TEST_F(DynamicUpdate, AliasIsReportedInsteadOfLosingTheRecord) {
    const Failure failure =
        FailureOf([&] { backend_->AddTxt(kZone, "_acme-challenge.alias.example.test", "v"); });
    EXPECT_EQ(failure.type, "dns");
    EXPECT_THAT(failure.text, AllOf(HasSubstr(Address()), HasSubstr("CNAME")));
}

// Behaviour: A refused key, a foreign or static zone, an alias in the way and a server that is down or silent
//   are errors "dns" that say so
TEST_F(DynamicUpdate, WrongKeyIsRefused) {
    Settings settings = Good();
    settings["dns-key-file"] = parts::WriteTsigKey(server_->folder(), "stranger");
    const auto stranger = MakeBackend(settings);
    for (const auto& action : {&Backend::AddTxt, &Backend::RemoveTxt}) {
        const Failure failure =
            FailureOf([&] { (*stranger.*action)(kZone, "_acme-challenge.key.example.test", "v"); });
        EXPECT_EQ(failure.code, zelvek::Code::kDns);
        EXPECT_THAT(failure.text, AllOf(HasSubstr(Address()), HasSubstr("key is refused (NOTAUTH)")));
    }
    EXPECT_EQ(server_->Txt("_acme-challenge.key.example.test"), "");
}

// Behaviour: A refused key, a foreign or static zone ...
TEST_F(DynamicUpdate, RightNameWithAnotherSecretIsRefused) {
    const parts::TempFolder folder;
    Settings settings = Good();
    settings["dns-key-file"] = parts::WriteTsigKey(folder.path(), "update");
    const Failure failure = FailureOf([&] { MakeBackend(settings)->AddTxt(kZone, "a.example.test", "v"); });
    EXPECT_EQ(failure.type, "dns");
    EXPECT_THAT(failure.text, HasSubstr("key is refused (NOTAUTH)"));
}

// Behaviour: The key's file must be the owner's alone ...
TEST_F(DynamicUpdate, KeyFileIsCheckedAgainAtEachUse) {
    const parts::TempFolder folder;
    Settings settings = Good();
    const std::string key_file = folder.path() / "key";
    std::filesystem::copy_file(server_->key(), key_file);
    chmod(key_file.c_str(), 0600);
    settings["dns-key-file"] = key_file;
    const auto backend = MakeBackend(settings);
    chmod(key_file.c_str(), 0644);
    EXPECT_EQ(TypeOf([&] { backend->AddTxt(kZone, "a.example.test", "v"); }), "value");
}

// Behaviour: A refused key, a foreign or static zone ...
TEST_F(DynamicUpdate, ZoneThatTheServerDoesNotHaveIsReported) {
    const Failure failure = FailureOf([&] { backend_->AddTxt("elsewhere.test", "a.elsewhere.test", "v"); });
    EXPECT_EQ(failure.type, "dns");
    EXPECT_THAT(failure.text, AllOf(HasSubstr(Address()), HasSubstr("REFUSED")));
}

// Behaviour: A refused key, a foreign or static zone ...
TEST_F(DynamicUpdate, ZoneThatTakesNoUpdatesIsReported) {
    const Failure failure = FailureOf([&] { backend_->AddTxt("static.test", "a.static.test", "v"); });
    EXPECT_EQ(failure.code, zelvek::Code::kDns);
    EXPECT_THAT(failure.text, AllOf(HasSubstr(Address()), HasSubstr("static.test"), HasSubstr("REFUSED")));
}

// Behaviour: A zone that the settings do not name is an error "dns" that names it
TEST_F(DynamicUpdate, ZoneOutsideTheSettingsIsNotAsked) {
    const Failure failure = FailureOf([&] { backend_->AddTxt("other.test", "a.other.test", "v"); });
    EXPECT_EQ(failure.type, "dns");
    EXPECT_THAT(failure.text, HasSubstr("other.test"));
}

// Behaviour: A refused key, a foreign or static zone ...
TEST_F(DynamicUpdate, ServerThatIsDownIsReported) {
    Settings settings = Good();
    const int port = parts::FreePort();
    settings["dns-port"] = port;
    const auto backend = MakeBackend(settings);
    for (const auto& action : {&Backend::AddTxt, &Backend::RemoveTxt}) {
        const Failure failure = FailureOf([&] { (*backend.*action)(kZone, "a.example.test", "v"); });
        EXPECT_EQ(failure.type, "dns");
        EXPECT_EQ(failure.code, zelvek::Code::kUnavailable);
        EXPECT_THAT(failure.text,
                    AllOf(HasSubstr("127.0.0.1:" + std::to_string(port)), HasSubstr("connection refused")));
    }
}

/// Takes connections, which the kernel does by itself, and never answers.
class SilentServer {
public:
    SilentServer() : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        if (bind(fd_, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(fd_, 10) != 0) port_ = -1;
        if (getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size) == 0 && port_ == 0) {
            port_ = ntohs(address.sin_port);
        }
    }
    ~SilentServer() { close(fd_); }
    SilentServer(const SilentServer&) = delete;
    SilentServer& operator=(const SilentServer&) = delete;

    int port() const { return port_; }

private:
    int fd_;
    int port_ = 0;
};

// Behaviour: A refused key, a foreign or static zone ...
TEST_F(DynamicUpdate, SilentServerIsGivenUpInTime) {
    const SilentServer silent;
    ASSERT_GT(silent.port(), 0);
    Settings settings = Good();
    settings["dns-port"] = silent.port();
    const auto start = std::chrono::steady_clock::now();
    const Failure failure = FailureOf([&] { MakeBackend(settings)->AddTxt(kZone, "a.example.test", "v"); });
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(40));
    EXPECT_EQ(failure.code, zelvek::Code::kUnavailable);
    EXPECT_THAT(failure.text,
                AllOf(HasSubstr("127.0.0.1:" + std::to_string(silent.port())), HasSubstr("timed out")));
}

// Behaviour: No error tells the key's secret
TEST_F(DynamicUpdate, NoErrorTellsTheSecret) {
    const std::string content = parts::Content(server_->key());
    const std::size_t begin = content.find("secret \"") + 8;
    const std::string secret = content.substr(begin, content.find('"', begin) - begin);
    ASSERT_GT(secret.size(), 20u);
    for (const char* zone : {"static.test", "elsewhere.test", "other.test"}) {
        const Failure failure = FailureOf([&] { backend_->AddTxt(zone, std::string("a.") + zone, "v"); });
        EXPECT_THAT(failure.text, Not(HasSubstr(secret)));
    }
}

// Behaviour: Threads may add and remove records at once
TEST_F(DynamicUpdate, ThreadsCanUpdateAtOnce) {
    std::vector<std::thread> threads(4);
    const std::string name = "_acme-challenge.threads.example.test";
    for (std::size_t i = 0; i < threads.size(); ++i) {
        threads[i] = std::thread([&, i] { backend_->AddTxt(kZone, name, "value" + std::to_string(i)); });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(server_->Txt(name), "\"value0\"\n\"value1\"\n\"value2\"\n\"value3\"\n");
}

}  // namespace
