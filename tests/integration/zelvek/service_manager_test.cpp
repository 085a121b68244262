// A service that is started by systemd, or by what speaks its protocols: the socket that it is handed, and
// what it tells.
#include "zelvek/service/service_manager.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "service.h"
#include "zelvek/base/umask.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds kLongWait{60};

sockaddr_un AddressOf(const fs::path& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

/// A socket of this kind at this place.
Descriptor SocketAt(const fs::path& path, int type, mode_t mask = 0177) {
    Descriptor made(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    const sockaddr_un address = AddressOf(path);
    const Umask umask(mask);
    if (::bind(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
        throw std::runtime_error("cannot bind " + path.string());
    return made;
}

Descriptor ListenAt(const fs::path& path, mode_t mask = 0177) {
    Descriptor made = SocketAt(path, SOCK_STREAM, mask);
    if (::listen(made.get(), SOMAXCONN) != 0) throw std::runtime_error("cannot listen");
    return made;
}

class Started : public ServiceTest {
protected:
    Started() {
        fs::create_directory(Path("run"));
        fs::permissions(Path("run"), fs::perms{0700});
    }
    ~Started() override {
        for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "LISTEN_PID", "LISTEN_FDS"})
            ::unsetenv(name);
    }

    /// The service's command with the socket as its descriptor 3, as a service manager hands it over.
    std::vector<std::string> With(const Descriptor& listener, const std::string& count = "1") {
        kept_.emplace_back(::dup(listener.get()));  // child processes get this one
        std::vector<std::string> words{
            "/usr/bin/python3", "-c",
            "import os, sys\n"
            "os.dup2(int(sys.argv[1]), 3)\n"
            "os.environ.update(LISTEN_PID=str(os.getpid()), LISTEN_FDS=sys.argv[2])\n"
            "os.execv(sys.argv[3], sys.argv[3:])",
            std::to_string(kept_.back().get()), count};
        for (const std::string& word : ServeCommand()) words.push_back(word);
        return words;
    }

    std::unique_ptr<Command> StartWith(const Descriptor& listener) {
        auto started = StartCommand(With(listener));
        EXPECT_TRUE(Eventually([&] { return started->Out() == "zelvek: ready\n" || !started->Running(); }));
        EXPECT_TRUE(started->Running()) << started->Err();
        return started;
    }

    static void End(Command& service) {
        service.Signal(SIGTERM);
        const Ended ended = service.Wait();
        EXPECT_EQ(ended.status, 0) << ended.err;
    }

    std::string RefusalWith(const Descriptor& listener, const std::string& count = "1") {
        const Ended ended = StartCommand(With(listener, count))->Wait();
        EXPECT_EQ(ended.status, 1) << ended.err;
        return ended.err;
    }

private:
    std::vector<Descriptor> kept_;
};

/// What the service tells.
class Listening {
public:
    explicit Listening(const fs::path& path) : socket_(SocketAt(path, SOCK_DGRAM)) {
        ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }

    /// Empty where nothing comes for that long.
    std::string Next(std::chrono::milliseconds limit = kLongWait) const {
        pollfd waiting{socket_.get(), POLLIN, 0};
        if (::poll(&waiting, 1, static_cast<int>(limit.count())) != 1) return "";
        char text[256];
        const ssize_t size = ::read(socket_.get(), text, sizeof(text));
        return {text, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
    }

private:
    Descriptor socket_;
};

// Behaviours of: Start and store

// Behaviour: A listening socket that was handed over is served, and left when the service ends: who connects
// between two
//   services is answered by the second one
TEST_F(Started, ARestartRefusesNobodyOnASocketThatWasHandedOver) {
    const Descriptor listener = ListenAt(Socket());
    const auto first = StartWith(listener);
    EXPECT_EQ(ErrorOf("func=zelvek.account.show"), "");
    End(*first);
    EXPECT_TRUE(fs::exists(Socket()));
    const Descriptor caller(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = AddressOf(Socket());
    ASSERT_EQ(::connect(caller.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    const std::string query = Request("POST /", "func=zelvek.account.show");
    ASSERT_EQ(::write(caller.get(), query.data(), query.size()), static_cast<ssize_t>(query.size()));
    const auto second = StartWith(listener);
    char answer[13]{};
    ASSERT_EQ(::recv(caller.get(), answer, 12, MSG_WAITALL), 12);
    EXPECT_STREQ(answer, "HTTP/1.1 200");
    End(*second);
}

// Behaviour: A socket that was handed over has to be the one of the run directory, its user's alone and the
// only one
TEST_F(Started, ASocketThatWasHandedOverIsLookedAt) {
    const std::string other = Path("other.sock");
    EXPECT_EQ(RefusalWith(ListenAt(other)), "zelvek: the socket that was handed over listens on \"" + other +
                                                "\", the service's is " + Socket().string() + "\n");
    EXPECT_EQ(RefusalWith(SocketAt(Socket(), SOCK_STREAM)),
              "zelvek: the socket that was handed over listens on \"\", the service's is " +
                  Socket().string() + "\n");
    fs::remove(Socket());
    EXPECT_EQ(RefusalWith(ListenAt(Socket(), 0)), "zelvek: the socket " + Socket().string() +
                                                      " that was handed over has to be of user id " +
                                                      std::to_string(::geteuid()) + ", with mode 0600\n");
    fs::remove(Socket());
    EXPECT_EQ(RefusalWith(ListenAt(Socket()), "2"),
              "zelvek: 2 sockets were handed over to the service, which has one\n");
}

// Behaviour: A service manager hears when the service is ready, then as often as it wants to that it answers,
// and when it
//   ends
TEST_F(Started, TheManagerHearsOfReadinessLifeAndEnd) {
    const Listening manager(Path("manager"));
    ::setenv("WATCHDOG_USEC", "300000", 1);
    Start();
    EXPECT_EQ(manager.Next(), "READY=1");
    for (int time = 0; time < 3; ++time) EXPECT_EQ(manager.Next(), "WATCHDOG=1");
    Stop();
    std::string last;
    for (std::string told; !(told = manager.Next(std::chrono::milliseconds(0))).empty();) last = told;
    EXPECT_EQ(last, "STOPPING=1");
}

// Behaviour: A service manager hears when the service reads its options again, and what came of that
TEST_F(Started, TheManagerHearsOfAReload) {
    const Listening manager(Path("manager"));
    std::ofstream(Path("conf")) << "retry-interval=5\n";
    Start({{"--config", Path("conf")}});
    EXPECT_EQ(manager.Next(), "READY=1");
    const auto reload = [&](const std::string& line) {
        std::ofstream(Path("conf")) << line << "\n";
        service().Signal(SIGHUP);
        const std::string begun = manager.Next();
        EXPECT_EQ(begun.substr(0, begun.find('=', 12)), "RELOADING=1\nMONOTONIC_USEC");
        EXPECT_GT(std::stoll(begun.substr(begun.rfind('=') + 1)), 0);
        return manager.Next();
    };
    EXPECT_EQ(reload("retry-interval=6"), "READY=1\nSTATUS=options read again, taken over: retry-interval");
    const std::string refused = reload("retry-interval=never");
    EXPECT_EQ(refused.find("READY=1\nSTATUS=the options cannot be used, the old ones go on: " +
                           Path("conf").string() + ":1: "),
              0U)
        << refused;
}

// Behaviour: A service that does not answer on its own socket is silent, so that its service manager starts
// another one
TEST_F(Started, AServiceThatCannotBeAskedIsSilent) {
    const Listening manager(Path("manager"));
    ::setenv("WATCHDOG_USEC", "300000", 1);
    Start();
    fs::remove(Socket());
    const auto count = [this] {
        std::size_t lines = 0;
        const std::string log = service().Err();
        for (auto at = log.find("watchdog: "); at != std::string::npos; at = log.find("watchdog: ", at + 1))
            ++lines;
        return lines;
    };
    ASSERT_TRUE(Eventually([&] { return count() >= 1; }));
    while (!manager.Next(std::chrono::milliseconds(0)).empty()) continue;
    ASSERT_TRUE(Eventually([&] { return count() >= 2; }));
    EXPECT_EQ(manager.Next(std::chrono::milliseconds(0)), "");
}

// Behaviour: What a service manager has put into the environment for the service reaches no child process,
// and what was
//   meant for another process is left alone
TEST_F(Started, TheManagersVariablesAreTaken) {
    ::setenv("NOTIFY_SOCKET", "/nonexistent", 1);
    ::setenv("LISTEN_PID", "1", 1);
    ::setenv("LISTEN_FDS", "1", 1);
    ::setenv("WATCHDOG_PID", "1", 1);
    ::setenv("WATCHDOG_USEC", "300000", 1);
    ServiceManager manager;
    for (const char* name : {"NOTIFY_SOCKET", "LISTEN_PID", "LISTEN_FDS", "WATCHDOG_PID", "WATCHDOG_USEC"})
        EXPECT_EQ(std::getenv(name), nullptr) << name;
    EXPECT_FALSE(manager.TakeSocket());
    EXPECT_FALSE(manager.watchdog());
    manager.TellReady();  // to nobody, and nothing happens
}

}  // namespace

}  // namespace zelvek::testing
