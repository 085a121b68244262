// The socket itself: who may ask, how much, and how many at once.
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "service.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;
constexpr std::size_t kLimit = std::size_t{8} << 20;

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
                  if (!answer.starts_with("HTTP/1.1 403 ") || answer.find("<kid>") != std::string::npos) {
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
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    Socket().string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(::send(fd, "POST / HTTP/1.1\r\n", 17, MSG_NOSIGNAL), 17);
    EXPECT_EQ(ErrorOf("func=zelvek.account.show"), "");
    Stop();
    ::close(fd);
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
