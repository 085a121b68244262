// The socket itself: who may ask, how much, and how many at once.
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
#include <thread>

#include "service.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLimit = std::size_t{8} << 20;

/// A connection to the service, on which nothing is said but what a test says.
class Connection {
public:
    explicit Connection(const fs::path& path) : fd_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
        const timeval limit{60, 0};  // for what never comes
        ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        if (::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
            throw std::runtime_error("cannot connect");
    }
    ~Connection() { ::close(fd_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// False where nobody reads it any more.
    bool Say(const std::string& text) const {
        return ::send(fd_, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
    }

    /// All that comes, up to the end.
    std::string Hear() const {
        std::string heard;
        char chunk[4096];
        for (ssize_t count = 0; (count = ::read(fd_, chunk, sizeof(chunk))) > 0;) {
            heard.append(chunk, static_cast<std::size_t>(count));
        }
        return heard;
    }

private:
    int fd_;
};

class ServerTest : public ServiceTest {
protected:
    ServerTest() { Start(); }
};

// Behaviours of: Socket and answers

// Behaviour: A query is a POST of a form to "/", anything else is refused and the service goes on
TEST_F(ServerTest, AnswersAPostOfAForm) {
    const std::string answer = Raw(Request("POST /", "func=zelvek.account.show"));
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 200 ")) << answer;
    EXPECT_NE(answer.find("<doc><kid></kid><key>off</key></doc>"), std::string::npos) << answer;
}

// Behaviour: A query is a POST of a form to "/", anything ...
TEST_F(ServerTest, AnswersNothingElse) {
    EXPECT_TRUE(Raw(Request("GET /?func=zelvek.account.show", "")).starts_with("HTTP/1.1 405 "));
    EXPECT_TRUE(Raw(Request("PUT /", "func=zelvek.account.show")).starts_with("HTTP/1.1 405 "));
    EXPECT_TRUE(Raw(Request("POST /other", "func=zelvek.account.show")).starts_with("HTTP/1.1 404 "));
    EXPECT_EQ(Raw("nonsense\r\n\r\n").find("<doc>"), std::string::npos);
    EXPECT_EQ(ErrorOf("func=zelvek.account.show"), "") << "and goes on";
}

// Behaviour: Socket and directory belong to the service's user alone
TEST_F(ServerTest, SocketAndDirectoryAreItsUsersAlone) {
    struct stat status {};
    ASSERT_EQ(::stat(Socket().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    ASSERT_EQ(::stat(Path("run").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);
}

// Behaviour: Another user's process is refused, even where the socket is open to it
// Opened as wide as can be, it still answers its own user alone. Only root can become somebody else to try.
TEST_F(ServerTest, AnotherUsersProcessIsRefused) {
    if (::geteuid() != 0) {
        EXPECT_EQ(fs::status(Socket()).permissions(), fs::perms{0600});
        return;
    }
    for (fs::path folder = Path("run"); folder != folder.root_path() && folder != fs::temp_directory_path();
         folder = folder.parent_path()) {
        fs::permissions(folder, fs::perms{0755});
    }
    fs::permissions(Socket(), fs::perms{0666});
    EXPECT_EQ(InChild([&] {
                  if (::setgroups(0, nullptr) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) {
                      throw std::runtime_error("cannot become another user");
                  }
                  const std::string answer = Raw(Request("POST /", "func=zelvek.account.show"));
                  const bool refused =
                      answer.starts_with("HTTP/1.1 403 ") &&
                      answer.find(
                          "<msg>this service answers processes of user id 0 alone, and this one has "
                          "user id 65534</msg>") != std::string::npos;
                  if (!refused || answer.find("<kid>") != std::string::npos) {
                      throw std::runtime_error("answered: " + answer);
                  }
              }),
              0);
}

// Behaviour: A query may have eight mebibytes, not one byte more
TEST_F(ServerTest, AQueryMayHaveEightMebibytes) {
    const std::string query = "func=zelvek.account.show&x=";
    EXPECT_EQ(ErrorOf(query + std::string(kLimit - query.size(), 'x')), "");
    try {
        Ask(query + std::string(kLimit - query.size() + 1, 'x'));
        FAIL() << "one byte more is taken";
    } catch (const vek_err::Error& error) {
        EXPECT_EQ(error.type(), "protocol");
        EXPECT_NE(std::string(error.what()).find("larger than 8388608 bytes"), std::string::npos)
            << error.what();
    }
    EXPECT_EQ(ErrorOf(query + std::string(3 * kLimit, 'x')), "protocol");
}

// Behaviour: A silent connection keeps nobody waiting, and many may ask at once
TEST_F(ServerTest, ASilentConnectionKeepsNobodyWaiting) {
    const Connection silent(Socket());
    EXPECT_TRUE(silent.Say("POST / HTTP/1.1\r\n"));
    EXPECT_EQ(ErrorOf("func=zelvek.account.show"), "");
    Stop();
}

// Behaviour: A query that has not arrived as a whole holds up no end of the service
TEST_F(ServerTest, AQueryThatIsNotCompleteHoldsUpNoEnd) {
    const Connection silent(Socket());
    const Connection begun(Socket());
    EXPECT_TRUE(begun.Say("POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 100\r\n\r\nfunc="));
    EXPECT_EQ(ErrorOf("func=zelvek.account.show"), "");
    service().Signal(SIGTERM);
    EXPECT_EQ(begun.Hear(), "");
    EXPECT_EQ(silent.Hear(), "");
    EXPECT_EQ(service().Wait().status, 0);
}

// Behaviour: A query has ten seconds to arrive as a whole; a byte now and then does not lengthen that
TEST_F(ServerTest, AQueryThatTricklesInIsEnded) {
    const Connection silent(Socket());
    const Connection trickling(Socket());
    ASSERT_TRUE(trickling.Say("POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 100\r\n\r\n"));
    const auto start = std::chrono::steady_clock::now();
    int bytes = 0;
    while (bytes < 90 && trickling.Say("x")) {
        ++bytes;
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    EXPECT_LT(bytes, 90);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(9));
    EXPECT_EQ(trickling.Hear(), "");
    EXPECT_EQ(silent.Hear(), "");
}

// Behaviour: An answer that its caller does not take within ten seconds is given up
TEST_F(ServerTest, AnAnswerThatNobodyTakesIsGivenUp) {
    const std::string much(1 << 20, 'x');
    for (int i = 0; i < 16; ++i) {
        Ask("func=problems.register&sok=ok&name=n&level=error&owner=anna",
            {{"id", std::to_string(i)}, {"param_much", much}});
    }
    const Connection deaf(Socket());
    ASSERT_TRUE(deaf.Say(Request("POST /", "func=zelvek.problem.list")));
    std::this_thread::sleep_for(std::chrono::seconds(12));
    const std::string heard = deaf.Hear();
    EXPECT_TRUE(heard.starts_with("HTTP/1.1 200 "));
    EXPECT_LT(heard.size(), 16 * much.size());
}

// Behaviour: A process may have eight connections; a further one is ended at once, with status 503, so that
// no
//   process keeps others out
TEST_F(ServerTest, OneProcessKeepsNobodyOut) {
    std::vector<std::unique_ptr<Connection>> silent(300);
    for (auto& each : silent) each = std::make_unique<Connection>(Socket());
    EXPECT_EQ(Zelvek({"account", "show"}).err, "");
    for (std::size_t i = 8; i < silent.size(); ++i) {
        const std::string heard = silent[i]->Hear();
        EXPECT_TRUE(heard.starts_with("HTTP/1.1 503 ")) << heard;
        EXPECT_TRUE(heard.ends_with("<msg>this process has too many connections open</msg></error></doc>"))
            << heard;
    }
    // Its own next query finds a place when the silent ones have had their time.
    EXPECT_EQ(ErrorOf("func=problems.register&sok=ok&name=n&id=1&level=error&owner=anna"), "");
}

// Behaviour: A process may have eight connections ...
TEST_F(ServerTest, WhatIsSentOnAConnectionTooManyIsNotDone) {
    std::vector<std::unique_ptr<Connection>> open(8);
    for (auto& each : open) each = std::make_unique<Connection>(Socket());
    EXPECT_EQ(InChild([&] {
                  // The child is another process: it has room.
                  if (Raw(Request("POST /", "func=zelvek.account.show")).find(" 200 ") == std::string::npos)
                      throw std::runtime_error("not answered");
              }),
              0);
    for (int i = 0; i < 50; ++i)
        Raw(Request("POST /", "func=zelvek.job.add&domain=shop.example&user_name=anna"));
    open.clear();
    EXPECT_TRUE(Eventually([] { return ErrorOf("func=zelvek.job.list") == ""; }));
    EXPECT_TRUE(Ask("func=zelvek.job.list").xml().GetNodes("/doc/elem").empty());
}

// Behaviour: A silent connection keeps nobody waiting ...
TEST_F(ServerTest, ManyAskAtOnce) {
    constexpr int kThreads = 8;
    constexpr int kJobs = 10;
    std::atomic<int> errors{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&errors, thread] {
            for (int i = 0; i < kJobs; ++i) {
                const std::string name = "s" + std::to_string(i) + ".t" + std::to_string(thread) + ".example";
                if (ErrorOf("func=zelvek.job.add&user_name=anna&foreign_names=on", {{"domain", name}}) != "")
                    ++errors;
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(errors, 0);
    EXPECT_EQ(Ask("func=zelvek.job.list").xml().GetNodes("/doc/elem").size(), std::size_t{kThreads * kJobs});
}

// Behaviour: The socket is removed at the end
TEST_F(ServerTest, RemovesItsSocketAtTheEnd) {
    Stop();
    EXPECT_FALSE(fs::exists(Socket()));
}

}  // namespace

}  // namespace zelvek::testing
