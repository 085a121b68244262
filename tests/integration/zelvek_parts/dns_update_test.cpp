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

// Behaviour: Names and values that are none, or would ...
TEST_F(DynamicUpdate, CommandsInNamesAndValuesAreRefused) {
    EXPECT_EQ(TypeOf([&] { backend_->AddTxt(kZone, "x.example.test. 60 TXT y\nsend\n", "v"); }), "value");
    EXPECT_EQ(
        TypeOf([&] { backend_->AddTxt(kZone, "x.example.test", "v\"\nupdate add y.example.test 60 TXT z"); }),
        "value");
    EXPECT_EQ(TypeOf([&] { backend_->AddTxt(kZone, "_acme-challenge.notexample.test", "v"); }), "value");
    EXPECT_EQ(server_->Txt("y.example.test"), "");
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

}  // namespace
