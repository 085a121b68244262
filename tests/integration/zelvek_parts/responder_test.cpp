#include "zelvek/publishing/responder.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <thread>

#include "unit/zelvek_parts/support.h"
#include "zelvek/publishing/answers.h"
#include "zelvek/publishing/visitors.h"

namespace {

using parts::FailureOf;
using parts::Put;
using parts::TempFolder;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using zelvek::Responder;

/// One connection to the responder; reading gives up after a time that only a broken one takes.
class Connection {
public:
    /// `from` is the last byte of the IPv4 address that it comes from, 127.0.0.x.
    Connection(int family, int port, unsigned from = 1) : fd_(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const timeval limit{40, 0};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        sockaddr_storage address{};
        socklen_t size = 0;
        if (family == AF_INET) {
            auto& v4 = reinterpret_cast<sockaddr_in&>(address);
            v4.sin_family = AF_INET;
            v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK - 1 + from);
            size = sizeof v4;
            if (from != 1) bind(fd_, reinterpret_cast<const sockaddr*>(&address), size);
            v4.sin_port = htons(static_cast<std::uint16_t>(port));
            v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        } else {
            auto& v6 = reinterpret_cast<sockaddr_in6&>(address);
            v6.sin6_family = AF_INET6;
            v6.sin6_port = htons(static_cast<std::uint16_t>(port));
            v6.sin6_addr = in6addr_loopback;
            size = sizeof v6;
        }
        connected_ = connect(fd_, reinterpret_cast<const sockaddr*>(&address), size) == 0;
    }
    ~Connection() { close(fd_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool connected() const { return connected_; }
    /// False where nobody takes it any more.
    bool Send(const std::string& text) const { return send(fd_, text.data(), text.size(), MSG_NOSIGNAL) > 0; }

    std::string ReadToEnd() const {
        std::string text;
        char buffer[4096];
        for (ssize_t got = recv(fd_, buffer, sizeof buffer, 0); got > 0;
             got = recv(fd_, buffer, sizeof buffer, 0)) {
            text.append(buffer, static_cast<std::size_t>(got));
        }
        return text;
    }

private:
    int fd_;
    bool connected_ = false;
};

std::string Ask(int port, const std::string& request_line, int family = AF_INET, unsigned from = 1) {
    const Connection connection(family, port, from);
    connection.Send(request_line + " HTTP/1.1\r\nHost: example.org\r\nConnection: close\r\n\r\n");
    return connection.ReadToEnd();
}

class ResponderTest : public testing::Test {
protected:
    ResponderTest() { zelvek::answers::Create(answers_, "token-1_A", "token-1_A.thumbprint"); }

    TempFolder folder_;
    std::filesystem::path answers_ = folder_.path();
    Responder responder_{"127.0.0.1:0", answers_};
    const std::string found_ = "GET /.well-known/acme-challenge/token-1_A";
};

// Behaviours of: Answer files (ambrin_challenge)

// Behaviour: The built-in web server gives answers as plain text at their path, and nothing else
TEST_F(ResponderTest, GivesTheAnswerAsPlainText) {
    const std::string answer = Ask(responder_.Port(), found_);
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(answer, HasSubstr("Content-Type: text/plain\r\n"));
    EXPECT_THAT(answer, EndsWith("\r\n\r\ntoken-1_A.thumbprint"));
}

// Behaviour: The built-in web server gives answers as ...
TEST_F(ResponderTest, HeadGivesTheHeadersAlone) {
    const std::string answer = Ask(responder_.Port(), "HEAD /.well-known/acme-challenge/token-1_A");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(answer, HasSubstr("Content-Length: 20\r\n"));
    EXPECT_THAT(answer, EndsWith("\r\n\r\n"));
}

// Behaviour: The built-in web server gives answers as ...
TEST_F(ResponderTest, FollowsCreationAndRemoval) {
    zelvek::answers::Create(answers_, "later", "x");
    EXPECT_THAT(Ask(responder_.Port(), "GET /.well-known/acme-challenge/later"), EndsWith("\r\n\r\nx"));
    zelvek::answers::Remove(answers_, "later");
    EXPECT_THAT(Ask(responder_.Port(), "GET /.well-known/acme-challenge/later"), StartsWith("HTTP/1.1 404 "));
}

// Behaviour: The built-in web server gives answers as ...
TEST_F(ResponderTest, EverythingElseIsNotFound) {
    std::filesystem::create_directory(answers_ / "folder");
    Put(answers_ / "folder" / "inside", "secret");
    Put(answers_ / ".new-0123", "secret");
    Put(answers_ / "dotted.name", "secret");
    for (const char* request : {"GET /",
                                "GET /token-1_A",
                                "GET /.well-known/acme-challenge",
                                "GET /.well-known/acme-challenge/",
                                "GET /.well-known/acme-challenge/missing",
                                "GET /.well-known/acme-challenge/folder",
                                "GET /.well-known/acme-challenge/folder/inside",
                                "GET /.well-known/acme-challenge/folder%2Finside",
                                "GET /.well-known/acme-challenge/.new-0123",
                                "GET /.well-known/acme-challenge/dotted.name",
                                "GET /.well-known/acme-challenge/../acme-challenge/token-1_A",
                                "GET /.well-known/acme-challenge/..%2f..%2f..%2fetc%2fhostname",
                                "GET /.well-known/acme-challenge/%74oken-1_A",
                                "GET /.well-known/acme-challenge/token-1_A%00",
                                "GET /.well-known/acme-challenge/token-1_A/",
                                "GET //.well-known/acme-challenge/token-1_A",
                                "POST /.well-known/acme-challenge/token-1_A",
                                "PUT /.well-known/acme-challenge/token-1_A",
                                "DELETE /.well-known/acme-challenge/token-1_A",
                                "get /.well-known/acme-challenge/token-1_A"}) {
        const std::string answer = Ask(responder_.Port(), request);
        EXPECT_THAT(answer, StartsWith("HTTP/1.1 404 ")) << request;
        EXPECT_THAT(answer, Not(HasSubstr("secret"))) << request;
    }
}

// Behaviour: The built-in web server gives answers as ...
TEST_F(ResponderTest, NeitherLinksNorPipesAreOpened) {
    Put(folder_.path() / "x.secret", "secret");
    std::filesystem::create_symlink(folder_.path() / "x.secret", answers_ / "link");
    ASSERT_EQ(mkfifo((answers_ / "pipe").c_str(), 0644), 0);
    for (const char* name : {"link", "pipe"}) {
        const std::string answer =
            Ask(responder_.Port(), std::string("GET /.well-known/acme-challenge/") + name);
        EXPECT_THAT(answer, StartsWith("HTTP/1.1 404 ")) << name;
        EXPECT_THAT(answer, Not(HasSubstr("secret"))) << name;
    }
}

// Behaviour: Noise, large requests and silent connections do not stop it
TEST_F(ResponderTest, OversizedRequestsAndNoiseDoNotStopIt) {
    Ask(responder_.Port(), "GET /" + std::string(100'000, 'a'));
    Connection(AF_INET, responder_.Port()).Send("\xff\x16\x03\x01 no http at all\r\n\r\n");
    Connection(AF_INET, responder_.Port()).Send(std::string(100'000, '\n'));
    EXPECT_THAT(Ask(responder_.Port(), found_), StartsWith("HTTP/1.1 200 OK\r\n"));
}

// Behaviour: Noise, large requests and silent connections ...
TEST_F(ResponderTest, SilentConnectionsDoNotKeepOthersOut) {
    std::vector<std::unique_ptr<Connection>> silent(40);
    for (auto& connection : silent) connection = std::make_unique<Connection>(AF_INET, responder_.Port());
    for (const auto& connection : silent) connection->Send("GET /.well-known/ac");
    EXPECT_THAT(Ask(responder_.Port(), found_), StartsWith("HTTP/1.1 200 OK\r\n"));
}

// Behaviour: Noise, large requests and silent connections ...
TEST_F(ResponderTest, SilentConnectionIsEnded) {
    const Connection silent(AF_INET, responder_.Port());
    const auto start = std::chrono::steady_clock::now();
    silent.Send("GET /.well-known/ac");
    silent.ReadToEnd();
    EXPECT_LT(std::chrono::steady_clock::now() - start,
              std::chrono::seconds(39));  // before reading gave up itself
}

// Behaviour: A request has its time as a whole: bytes that trickle in do not lengthen it
TEST_F(ResponderTest, TricklingConnectionIsEnded) {
    const Responder responder("127.0.0.1:0", answers_, std::chrono::seconds(1));
    const Connection trickling(AF_INET, responder.Port());
    trickling.Send("GET /.well-known/");
    int bytes = 0;
    while (bytes < 200 && trickling.Send("a")) {
        ++bytes;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    EXPECT_LT(bytes, 200);
    EXPECT_THAT(Ask(responder.Port(), found_), StartsWith("HTTP/1.1 200 OK\r\n"));
}

// Behaviour: Whoever holds connections open, from one address or from many, keeps no request out: the oldest
// of
//   the address with the most make room
TEST_F(ResponderTest, ConnectionsHeldOpenKeepNobodyOut) {
    const Responder responder("127.0.0.1:0", answers_, std::chrono::hours(1));
    std::vector<std::unique_ptr<Connection>> held;
    for (int round = 0; round < 100; ++round) {
        for (unsigned from = 2; from <= 5; ++from) {
            held.push_back(std::make_unique<Connection>(AF_INET, responder.Port(), from));
            held.back()->Send("GET /.well-known/ac");
        }
    }
    EXPECT_THAT(Ask(responder.Port(), found_, AF_INET, 9), StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(Ask(responder.Port(), found_, AF_INET, 2), StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_EQ(held.front()->ReadToEnd(), "") << "the oldest has made room";
    held.back()->Send("me-challenge/token-1_A HTTP/1.1\r\nHost: example.org\r\n\r\n");
    EXPECT_THAT(held.back()->ReadToEnd(), EndsWith("token-1_A.thumbprint")) << "the newest has not";
}

// Behaviour: Whoever holds connections open, from one address ...
TEST_F(ResponderTest, ConnectionsOfOneAddressMakeRoomAmongThemselves) {
    const Responder responder("127.0.0.1:0", answers_, std::chrono::hours(1));
    const Connection other(AF_INET, responder.Port(), 3);
    other.Send("GET /.well-known/ac");
    std::vector<std::unique_ptr<Connection>> held;
    for (int count = 0; count < 150; ++count) {
        held.push_back(std::make_unique<Connection>(AF_INET, responder.Port(), 2));
        held.back()->Send("GET /.well-known/ac");
    }
    EXPECT_THAT(Ask(responder.Port(), found_, AF_INET, 2), StartsWith("HTTP/1.1 200 OK\r\n"));
    other.Send("me-challenge/token-1_A HTTP/1.1\r\nHost: example.org\r\n\r\n");
    EXPECT_THAT(other.ReadToEnd(), EndsWith("token-1_A.thumbprint"));
}

// Behaviour: Strangers are told apart by their IPv4 address, or by the first half of their IPv6 address
TEST(VisitorsNetwork, IsAnAddressOrHalfOfOne) {
    const auto of = [](const std::string& text) {
        sockaddr_storage storage{};
        auto& v4 = reinterpret_cast<sockaddr_in&>(storage);
        auto& v6 = reinterpret_cast<sockaddr_in6&>(storage);
        v4.sin_family = AF_INET;
        if (inet_pton(AF_INET, text.c_str(), &v4.sin_addr) != 1) {
            v6.sin6_family = AF_INET6;
            EXPECT_EQ(inet_pton(AF_INET6, text.c_str(), &v6.sin6_addr), 1) << text;
        }
        return zelvek::NetworkOf(reinterpret_cast<const sockaddr*>(&storage));
    };
    EXPECT_EQ(of("192.0.2.1"), of("::ffff:192.0.2.1"));
    EXPECT_NE(of("192.0.2.1"), of("192.0.2.2"));
    EXPECT_NE(of("::ffff:192.0.2.1"), of("::ffff:192.0.2.2"));
    EXPECT_EQ(of("2001:db8:0:1::1"), of("2001:db8:0:1:ffff::2"));
    EXPECT_NE(of("2001:db8:0:1::1"), of("2001:db8:0:2::1"));
}

// Behaviour: The threads that answer the authority leave SIGTERM to the service
TEST_F(ResponderTest, ItsThreadsLeaveSignalsToTheService) {
    int threads = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (task.path().filename() == std::to_string(getpid())) continue;
        const std::string status = parts::Content(task.path() / "status");
        const std::size_t at = status.find("SigBlk:\t");
        ASSERT_NE(at, std::string::npos);
        const unsigned long long blocked = std::stoull(status.substr(at + 8, 16), nullptr, 16);
        EXPECT_NE(blocked & (1ULL << (SIGTERM - 1)), 0u) << task.path();
        ++threads;
    }
    EXPECT_GT(threads, 0);
}

// Behaviour: It listens on any address of either family; wrong and taken ones are named
TEST(ResponderAddress, CanBeOfEitherFamilyOrAll) {
    const TempFolder folder;
    zelvek::answers::Create(folder.path(), "t", "answer");
    const std::string request = "GET /.well-known/acme-challenge/t";
    const Responder v6("[::1]:0", folder.path());
    EXPECT_THAT(Ask(v6.Port(), request, AF_INET6), EndsWith("answer"));
    const Responder every(":0", folder.path());
    EXPECT_THAT(Ask(every.Port(), request, AF_INET), EndsWith("answer"));
    EXPECT_THAT(Ask(every.Port(), request, AF_INET6), EndsWith("answer"));
}

// Behaviour: It listens on any address of either family ...
TEST(ResponderAddress, WrongOnesAreRefused) {
    for (const char* address :
         {"", ":", "80", "127.0.0.1", "127.0.0.1:", "127.0.0.1:x", "127.0.0.1:65536", "127.0.0.1:-1",
          "::1:80", "[::1]80", "[127.0.0.1]:80", "localhost:80", "[]:80", "a b:80"}) {
        EXPECT_EQ(FailureOf([&] { const Responder responder(address, "/"); }).type, "value") << address;
    }
}

// Behaviour: It listens on any address of either family ...
TEST(ResponderAddress, TakenOneIsAnErrorThatNamesIt) {
    const TempFolder folder;
    const Responder first("127.0.0.1:0", folder.path());
    const std::string address = "127.0.0.1:" + std::to_string(first.Port());
    const parts::Failure failure = FailureOf([&] { const Responder second(address, folder.path()); });
    EXPECT_EQ(failure.type, "io");
    EXPECT_THAT(failure.text, HasSubstr(address));
    EXPECT_THAT(failure.text, HasSubstr("in use"));
}

// Behaviour: It listens on any address of either family ...
TEST(ResponderEnd, FreesThePortEvenWithOpenConnections) {
    const TempFolder folder;
    int port = 0;
    {
        const Responder responder("127.0.0.1:0", folder.path());
        port = responder.Port();
        const Connection silent(AF_INET, port);
        ASSERT_TRUE(silent.connected());
    }
    EXPECT_FALSE(Connection(AF_INET, port).connected());
    EXPECT_EQ(
        FailureOf([&] { const Responder again("127.0.0.1:" + std::to_string(port), folder.path()); }).type,
        "none");
}

}  // namespace
