// The client against real sockets.
#include "vek/client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <optional>
#include <set>

#include "integration/vek/server.h"
#include "integration/vek/stopped_clock.h"
#include "vek/err.h"
#include "vek/str.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using vek_client::Local;
using vek_test::Connection;
using vek_test::Server;
using vek_test::Service;

constexpr std::chrono::milliseconds kMoment{700};

class Client : public testing::Test {
protected:
    std::string SocketPath() const { return folder.file("zelvek.sock"); }

    // Type and text of the error that a query ends with, without the waiting between its tries.
    std::pair<std::string, std::string> Error() const {
        const vek_test::StoppedClock clock(vek_test::StoppedClock::Polls::kWait);
        try {
            client.Query("func=a");
            return {"none", ""};
        } catch (const vek_err::Error& e) {
            return {e.type(), e.what()};
        }
    }

    std::string TypeOfError() const { return Error().first; }

    // What the client makes of these bytes as an answer.
    std::pair<std::string, std::string> Answered(const std::string& answer) const {
        const auto serve = [&answer](Connection& connection) {
            connection.ReadRequest();
            connection.Write(answer);
        };
        const Server server(serve, SocketPath());
        return Error();
    }

    std::string TypeOfErrorFor(const std::string& answer) const { return Answered(answer).first; }
    std::string ErrorFor(const std::string& answer) const { return Answered(answer).second; }

    vek_test::TempFolder folder;
    vek_test::Variable run_dir{"VEK_RUN_DIR", folder.path()};
    Local client{"zelvek", "sslcert"};
};

std::string EmptyAnswer(const std::string& /*query*/) { return "<doc/>"; }
std::string AnyAnswer(const std::string& /*query*/) { return "<doc><a>b</a></doc>"; }

// Behaviours of: Queries to a local service

// Behaviour: A query is a POST of the text as a form; the calling module stands in a header line
TEST_F(Client, PostsAFormAndNamesItsModule) {
    Service service(folder.path(), "zelvek", EmptyAnswer);
    client.Query("func=a&b=?", "c d");
    ASSERT_EQ(service.requests().size(), 1U);
    const auto request = service.requests().front();
    EXPECT_EQ(request.body, "func=a&b=c%20d");
    EXPECT_THAT(request.head, StartsWith("POST / HTTP/1.1\r\nHost: localhost\r\n"));
    EXPECT_THAT(request.head, HasSubstr("\r\nContent-Type: application/x-www-form-urlencoded\r\n"));
    EXPECT_THAT(request.head, HasSubstr("\r\nX-Vek-Module: sslcert\r\n"));
    EXPECT_THAT(request.head, Not(HasSubstr("Expect:")));
}

std::string IdentityOf(const vek_test::HttpRequest& request) {
    const std::string name = "\r\nX-Vek-Query: ";
    const auto at = request.head.find(name);
    if (at == std::string::npos) return "";
    std::string rest = request.head.substr(at + name.size());
    return str::GetWord(rest, "\r\n");
}

// Behaviour: Each query has an identity of its own, 32 hexadecimal digits in a header line
TEST_F(Client, GivesEachQueryAnIdentityOfItsOwn) {
    Service service(folder.path(), "zelvek", EmptyAnswer);
    client.Query("func=a");
    client.Query("func=a");
    ASSERT_EQ(service.requests().size(), 2U);
    const std::string first = IdentityOf(service.requests().front());
    EXPECT_EQ(first.size(), 32U);
    EXPECT_EQ(first.find_first_not_of("0123456789abcdef"), std::string::npos) << first;
    EXPECT_NE(IdentityOf(service.requests().back()), first);
}

// Behaviour: The service's socket is looked for in VEK_RUN_DIR at each query, or in /run/vek where that is
//   unset or empty
TEST_F(Client, LooksForItsServiceAtEachQuery) {
    const Service service(folder.path(), "zelvek",
                          [](const std::string&) { return "<doc><at>1</at></doc>"; });
    const vek_test::TempFolder other;
    const Service elsewhere(other.path(), "zelvek",
                            [](const std::string&) { return "<doc><at>2</at></doc>"; });
    EXPECT_EQ(client.Query("func=a").value("at"), "1");
    const vek_test::Variable moved("VEK_RUN_DIR", other.path());
    EXPECT_EQ(client.Query("func=a").value("at"), "2");
}

// Behaviour: Megabytes travel both ways; an answer beyond the limit is refused
TEST_F(Client, CarriesMegabytesBothWays) {
    const std::string much(5 << 20, 'x');
    Service service(folder.path(), "zelvek",
                    [&much](const std::string&) { return "<doc><a>" + much + "</a></doc>"; });
    EXPECT_EQ(client.Query("func=a", {{"a", much}}).value("a"), much);
    EXPECT_EQ(service.requests().front().body, "func=a&a=" + much);
}

// Behaviour: Threads may share a client, and no proxy ...
TEST_F(Client, IgnoresTheEnvironmentsProxy) {
    const Service service(folder.path(), "zelvek", EmptyAnswer);
    const vek_test::Variable lower("http_proxy", "http://127.0.0.1:1/");
    const vek_test::Variable all("ALL_PROXY", "http://127.0.0.1:1/");
    EXPECT_EQ(TypeOfError(), "none");
}

// How many of ten queries get an answer that is not theirs.
int CountMixedUp(const Local& client, int first) {
    int mixed_up = 0;
    for (int i = first; i < first + 10; ++i) {
        const std::string query = std::to_string(i);
        mixed_up += client.Query(query).value("q") == query ? 0 : 1;
    }
    return mixed_up;
}

// Behaviour: Threads may share a client, and no proxy is used
TEST_F(Client, MayBeUsedByManyThreads) {
    Service service(folder.path(), "zelvek",
                    [](const std::string& query) { return "<doc><q>" + query + "</q></doc>"; });
    std::array<std::future<int>, 8> threads;
    int first = 0;
    for (auto& thread : threads) thread = std::async(std::launch::async, CountMixedUp, client, first += 100);
    for (auto& thread : threads) EXPECT_EQ(thread.get(), 0);
    EXPECT_EQ(service.requests().size(), 80U);
}

// Behaviour: A missing or restarting service is waited for, five seconds, with a look every 50 milliseconds
TEST_F(Client, WaitsForAServiceThatStarts) {
    auto answer = std::async(std::launch::async, [this] { return client.Query("func=a").value("a"); });
    std::this_thread::sleep_for(kMoment);
    const Service service(folder.path(), "zelvek", AnyAnswer);
    EXPECT_EQ(answer.get(), "b");
}

// Behaviour: A missing or restarting service is waited ...
TEST_F(Client, WaitsForAServiceThatStartsAgain) {
    {
        const int stale = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        SocketPath().copy(address.sun_path, sizeof(address.sun_path) - 1);
        ASSERT_EQ(bind(stale, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        close(stale);
    }
    auto answer = std::async(std::launch::async, [this] { return client.Query("func=a").value("a"); });
    std::this_thread::sleep_for(kMoment);
    const Service service(folder.path(), "zelvek", AnyAnswer);
    EXPECT_EQ(answer.get(), "b");
}

// Behaviour: A missing or restarting service is waited ...
TEST_F(Client, WaitsForAServiceWithManyCallers) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    SocketPath().copy(address.sun_path, sizeof(address.sun_path) - 1);
    const auto* generic = reinterpret_cast<sockaddr*>(&address);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, generic, sizeof(address)), 0);
    ASSERT_EQ(listen(listener, 0), 0);
    const int caller = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    ASSERT_EQ(connect(caller, generic, sizeof(address)), 0);
    auto answer = std::async(std::launch::async, [this] { return client.Query("func=a").value("a"); });
    std::this_thread::sleep_for(kMoment);
    close(accept(listener, nullptr, nullptr));
    const int fd = accept(listener, nullptr, nullptr);
    Connection connection(fd, nullptr);
    EXPECT_EQ(connection.ReadRequest().body, "func=a");
    connection.Write(vek_test::Answer(200, "", AnyAnswer("")));
    EXPECT_EQ(answer.get(), "b");
    for (const int open : {fd, caller, listener}) close(open);
}

// Behaviour: A service that cannot be reached is an error ...
TEST_F(Client, CannotReachASocketWithTooLongAName) {
    const vek_test::Variable deep("VEK_RUN_DIR", folder.file(std::string(200, 'x')));
    EXPECT_EQ(TypeOfError(), "connect");
}

// Behaviour: A service that cannot be reached is an error "connect" that names the socket
TEST_F(Client, NamesTheSocketThatItCannotReach) {
    const vek_test::Variable elsewhere("VEK_RUN_DIR", "/dev/null");
    try {
        client.Query("func=a");
        FAIL();
    } catch (const vek_err::Error& e) {
        EXPECT_EQ(e.type(), "connect");
        EXPECT_STREQ(e.what(), "client: connect: /dev/null/zelvek.sock: Not a directory");
    }
}

/// A service of another user's on the client's socket. Only root can be two users.
class ForeignService : public Client {
protected:
    static constexpr uid_t kUser = 65534;

    void SetUp() override {
        ASSERT_EQ(geteuid(), 0U) << "only root can be two users";
        std::filesystem::permissions(folder.path(), std::filesystem::perms{0777});
    }

    /// What it has heard of this one query, which ends with `outcome`: an error's type and text, or the
    /// answer's "a".
    std::string HeardOf(const vek_client::Local& asking, std::string& outcome) {
        std::atomic<int> connections = 0;
        std::string heard;
        const auto serve = [&](Connection& connection) {
            heard += connection.Read();
            if (!heard.empty()) connection.Write(vek_test::Answer(200, "", AnyAnswer("")));
            ++connections;
        };
        EXPECT_EQ(seteuid(kUser), 0);
        std::optional<Server> server(std::in_place, serve, SocketPath());
        EXPECT_EQ(seteuid(0), 0);
        try {
            outcome = asking.Query("func=a").value("a");
        } catch (const vek_err::Error& error) {
            outcome = error.what();
        }
        for (int wait = 0; connections == 0 && wait < 6000; ++wait)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        server.reset();
        EXPECT_EQ(connections, 1);
        return heard;
    }

    std::string Refusal(const std::string& asked) const {
        return "client: connect: " + SocketPath() + ": the service has user id 65534, this process 0: only " +
               asked + " is asked";
    }
};

// Behaviour: A service of another user is told nothing; the error is "connect" and names socket and users
TEST_F(ForeignService, IsToldNothing) {
    std::string outcome;
    EXPECT_EQ(HeardOf(client, outcome), "");
    EXPECT_EQ(outcome, Refusal("a service of the same user"));
}

// Behaviour: A client that has been told whose the service is asks that user's service, too, and no third
//   one's
TEST_F(ForeignService, IsAskedWhereItsUserIsKnown) {
    std::string outcome;
    const vek_client::Local knowing("zelvek", "test", std::optional<vek_client::UserId>(kUser));
    EXPECT_NE(HeardOf(knowing, outcome), "");
    EXPECT_EQ(outcome, "b");
    const vek_client::Local mistaken("zelvek", "test", std::optional<vek_client::UserId>(kUser - 1));
    EXPECT_EQ(HeardOf(mistaken, outcome), "");
    EXPECT_EQ(outcome, Refusal("a service of the same user or of user id 65533"));
}

// Behaviour: An answer that cannot be read is an error ...
TEST_F(Client, CannotReadAnAnswerThatIsNone) {
    EXPECT_EQ(TypeOfErrorFor(""), "protocol");
    EXPECT_EQ(TypeOfErrorFor("garbage\r\n\r\n"), "protocol");
    EXPECT_EQ(TypeOfErrorFor("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n<doc/>"), "protocol");
    EXPECT_EQ(TypeOfErrorFor(vek_test::Answer(200, "", "text")), "protocol");
    EXPECT_EQ(TypeOfErrorFor(vek_test::Answer(200, "", "<doc/>")), "none");
}

// Behaviour: An answer that cannot be read is an error ...
TEST_F(Client, TakesStatus200Alone) {
    EXPECT_EQ(TypeOfErrorFor(vek_test::Answer(500, "", "<doc/>")), "protocol");
    EXPECT_EQ(TypeOfErrorFor(vek_test::Answer(204, "", "")), "protocol");
    EXPECT_EQ(TypeOfErrorFor(vek_test::Answer(302, "Location: /\r\n", "<doc/>")), "protocol");
}

// Behaviour: An answer that cannot be read is an error ...
TEST_F(Client, SaysWhatIsWrongWithAnAnswer) {
    const std::string beginning = "client: protocol: " + SocketPath() + ": ";
    EXPECT_EQ(ErrorFor(vek_test::Answer(404, "", "<doc/>")), beginning + "status 404");
    EXPECT_EQ(ErrorFor(vek_test::Answer(404, "", "not found")), beginning + "status 404");
    EXPECT_EQ(ErrorFor(""), beginning + "Empty reply from server");
}

// Behaviour: What the service says for people is the error's text, whatever status its answer has
TEST_F(Client, SaysWhatTheServiceSaysInAnAnswerOfAnyStatus) {
    const std::string refusal = "<doc><error type=\"value\"><msg>not you &amp; not now</msg></error></doc>";
    for (const int status : {200, 403, 500, 503}) {
        const auto [type, text] = Answered(vek_test::Answer(status, "", refusal));
        EXPECT_EQ(type, "value") << status;
        EXPECT_EQ(text, "not you & not now") << status;
    }
}

// Behaviour: A query whose connection breaks off before the whole answer is there, or that the service cannot
//   carry out for the moment (503), is sent again just as it was, with its identity
TEST_F(Client, SendsAgainWhatGotNoAnswer) {
    std::vector<vek_test::HttpRequest> requests;
    const auto serve = [&requests](Connection& connection) {
        static const std::vector<std::string> answers{
            "", "HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n<doc/>",
            vek_test::Answer(503, "", "<doc/>"), vek_test::Answer(200, "", AnyAnswer(""))};
        requests.push_back(connection.ReadRequest());
        connection.Write(answers.at(requests.size() - 1));
    };
    {
        const Server server(serve, SocketPath());
        EXPECT_EQ(client.Query("func=a&b=?", "c").value("a"), "b");
    }
    ASSERT_EQ(requests.size(), 5U);
    std::set<std::string> identities;
    for (const auto& request : requests) {
        EXPECT_EQ(request.body, "func=a&b=c");
        identities.insert(IdentityOf(request));
    }
    EXPECT_EQ(identities.size(), 1U);
}

// Behaviour: A query whose connection breaks off ...
TEST_F(Client, SendsAgainWhatItCouldNotSend) {
    int connections = 0;
    const auto serve = [&connections](Connection& connection) {
        if (++connections < 3) return;
        connection.ReadRequest();
        connection.Write(vek_test::Answer(200, "", AnyAnswer("")));
    };
    const Server server(serve, SocketPath());
    EXPECT_EQ(client.Query("func=a", {{"a", std::string(1 << 20, 'x')}}).value("a"), "b");
}

// Behaviour: A query that the service has answered is sent once, whatever the answer is
TEST_F(Client, SendsOnceWhatWasAnswered) {
    for (const std::string& answer :
         {vek_test::Answer(200, "", "text"), vek_test::Answer(500, "", "<doc/>"),
          std::string("garbage\r\n\r\n"),
          vek_test::Answer(200, "", "<doc><error type=\"busy\"><msg>m</msg></error></doc>")}) {
        int connections = 0;
        {
            const auto serve = [&](Connection& connection) {
                ++connections;
                connection.ReadRequest();
                connection.Write(answer);
            };
            const Server server(serve, SocketPath());
            EXPECT_THROW(client.Query("func=a&sok=ok"), vek_err::Error) << answer;
        }
        EXPECT_EQ(connections, 1) << answer;
    }
}

// Behaviour: Megabytes travel both ways; an answer beyond ...
TEST_F(Client, RefusesAnAnswerBeyondItsLimit) {
    const std::string too_large = "client: protocol: " + SocketPath() + ": the answer is too large";
    const std::string most = "<doc>" + std::string((64UL << 20) - 11, 'x') + "</doc>";
    EXPECT_EQ(ErrorFor(vek_test::Answer(200, "", most)), "");
    EXPECT_EQ(ErrorFor(vek_test::Answer(200, "", most + " ")), too_large);
    EXPECT_EQ(ErrorFor(vek_test::AnswerWithHeaderOf(256UL << 10, "<doc/>")), "");
    EXPECT_EQ(ErrorFor(vek_test::AnswerWithHeaderOf((256UL << 10) + 1, "<doc/>")), too_large);
}

// Behaviour: A service that hangs up is an error, no signal
// A write to a socket that the service has closed raises SIGPIPE, which nobody handles here.
TEST_F(Client, SurvivesAServiceThatHangsUp) {
    const Server server([](Connection&) {}, SocketPath());
    const vek_test::StoppedClock clock(vek_test::StoppedClock::Polls::kWait);
    EXPECT_THROW(client.Query("func=a", {{"a", std::string(1 << 20, 'x')}}), vek_err::Error);
}

}  // namespace
