#include "service.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <thread>

namespace zelvek::testing {

namespace fs = std::filesystem;
using std::chrono::steady_clock;

namespace {

constexpr std::chrono::seconds kPatience{60};
constexpr std::chrono::milliseconds kPause{10};
constexpr int kThrown = 99;

int ExitStatus(int status) { return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status); }

pid_t Spawn(std::vector<std::string> words, const fs::path& outputs) {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    const std::string out = outputs.string() + ".out";
    const std::string err = outputs.string() + ".err";
    posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, out.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_addopen(&files, 2, err.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    std::vector<char*> arguments;
    for (auto& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    pid_t pid = -1;
    const int error = posix_spawn(&pid, arguments[0], &files, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) throw std::runtime_error("cannot start " + words[0]);
    return pid;
}

}  // namespace

Command::Command(const std::vector<std::string>& words, const fs::path& outputs)
    : outputs_(outputs), pid_(Spawn(words, outputs)) {}

Command::~Command() {
    if (ended_) return;
    Signal(SIGKILL);
    Wait();
}

void Command::Signal(int number) const { ::kill(pid_, number); }

bool Command::Running() {
    if (ended_) return false;
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == 0) return true;
    status_ = ExitStatus(status);
    ended_ = true;
    return false;
}

Ended Command::Wait() {
    if (!Eventually([this] { return !Running(); })) throw std::runtime_error("a command does not end");
    return {status_, Out(), Err()};
}

std::string Command::Out() const { return ReadFile(outputs_.string() + ".out"); }
std::string Command::Err() const { return ReadFile(outputs_.string() + ".err"); }

int InChild(const std::function<void()>& work) {
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) {
        int status = 0;
        try {
            work();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "in the child: %s\n", error.what());
            status = kThrown;
        }
        ::_exit(status);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return ExitStatus(status);
}

bool Eventually(const std::function<bool()>& condition) {
    const auto end = steady_clock::now() + kPatience;
    while (!condition()) {
        if (steady_clock::now() > end) return false;
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

std::string ReadFile(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

ServiceTest::ServiceTest() {
    std::string pattern = (fs::temp_directory_path() / "zelvek.XXXXXX").string();
    folder_ = ::mkdtemp(pattern.data());
    fs::create_directory(Path("log"));
    ::setenv("VEK_RUN_DIR", Path("run").c_str(), 1);
    ::setenv("VEK_LOG_DIR", Path("log").c_str(), 1);
}

ServiceTest::~ServiceTest() {
    if (service_ && service_->Running()) {
        // An orderly end: what sanitizers find in the service shows in its exit status.
        service_->Signal(SIGTERM);
        const Ended ended = service_->Wait();
        EXPECT_EQ(ended.status, 0) << ended.err;
    }
    service_.reset();
    fs::remove_all(folder_);
}

std::vector<std::string> ServiceTest::ServeCommand(const std::map<std::string, std::string>& options) const {
    std::map<std::string, std::string> all{{"--database", Database()},
                                           {"--answers-dir", Path("answers")},
                                           {"--certs-dir", Path("certs")},
                                           {"--plugin", TEST_PLUGIN},
                                           {"--dns-records-file", Path("records")},
                                           {"--scheduler", "off"},
                                           {"--sweep-interval", "0.1"},
                                           {"--renewal-info", "off"},
                                           {"--public-resolvers", "off"}};
    for (const auto& [option, value] : options) all[option] = value;
    std::vector<std::string> words{ZELVEK_BINARY, "serve"};
    for (const auto& [option, value] : all) {
        if (!value.empty()) words.insert(words.end(), {option, value});
    }
    return words;
}

void ServiceTest::Start(const std::map<std::string, std::string>& options) {
    service_ = StartCommand(ServeCommand(options));
    const bool ready =
        Eventually([&] { return service_->Out() == "zelvek: ready\n" || !service_->Running(); });
    if (!ready || !service_->Running())
        throw std::runtime_error("the service does not start: " + service_->Err());
}

void ServiceTest::Stop() {
    service_->Signal(SIGTERM);
    const Ended ended = service_->Wait();
    ASSERT_EQ(ended.status, 0) << ended.err;
}

void ServiceTest::Kill() {
    service_->Signal(SIGKILL);
    service_->Wait();
}

vek_client::Result ServiceTest::Ask(const std::string& text,
                                    const std::map<std::string, std::string>& entries) {
    return vek_client::Local("zelvek", "test").Query(text, entries);
}

std::string ServiceTest::ErrorOf(const std::string& text, const std::map<std::string, std::string>& entries) {
    try {
        Ask(text, entries);
        return "";
    } catch (const vek_err::Error& error) {
        return error.type();
    }
}

std::string ServiceTest::Request(const std::string& line, const std::string& body,
                                 const std::string& header) {
    return line + " HTTP/1.1\r\nHost: localhost\r\n" + header +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string ServiceTest::Raw(const std::string& request) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    Socket().string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::string answer;
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
        ::send(fd, request.data(), request.size(), MSG_NOSIGNAL);
        char chunk[4096];
        for (ssize_t count = 0; (count = ::read(fd, chunk, sizeof(chunk))) > 0;) {
            answer.append(chunk, static_cast<std::size_t>(count));
        }
    }
    ::close(fd);
    return answer;
}

std::string ServiceTest::AddJob(const std::map<std::string, std::string>& entries) {
    std::map<std::string, std::string> all{
        {"domain", "shop.example"}, {"user_name", "anna"}, {"foreign_names", "on"}};
    for (const auto& [key, value] : entries) all[key] = value;
    return Ask("func=zelvek.job.add", all).value("id");
}

std::map<std::string, std::string> ServiceTest::WriteBack(const std::string& id,
                                                          const std::map<std::string, std::string>& entries) {
    std::map<std::string, std::string> all{{"elid", id},
                                           {"kid", ""},
                                           {"finalize_check", ""},
                                           {"challenges", ""},
                                           {"finalize", ""},
                                           {"modulus", ""},
                                           {"acmekey", ""},
                                           {"next_attempt", ""},
                                           {"log", ""},
                                           {"attempt_count", "0"},
                                           {"account_check_count", "0"},
                                           {"verified", "off"},
                                           {"failed", "off"},
                                           {"force_update", "off"},
                                           {"update_default_account", "off"},
                                           {"processing", "off"}};
    for (const auto& [key, value] : entries) all[key] = value;
    return all;
}

std::unique_ptr<Command> ServiceTest::StartCommand(const std::vector<std::string>& words) {
    return std::make_unique<Command>(words, Path("command-" + std::to_string(++commands_)));
}

Ended ServiceTest::Zelvek(const std::vector<std::string>& words) {
    std::vector<std::string> all{ZELVEK_BINARY};
    all.insert(all.end(), words.begin(), words.end());
    return StartCommand(all)->Wait();
}

}  // namespace zelvek::testing
