#include "integration/zelvek_parts/name_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <thread>

namespace parts {
namespace {

std::string Output(const std::string& command) {
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
    std::string output;
    char buffer[4096];
    for (std::size_t got = fread(buffer, 1, sizeof buffer, pipe); got > 0;
         got = fread(buffer, 1, sizeof buffer, pipe)) {
        output.append(buffer, got);
    }
    pclose(pipe);
    return output;
}

bool Binds(int type, int port, int& chosen) {
    const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const bool bound = bind(fd, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
                       getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    chosen = ntohs(address.sin_port);
    close(fd);
    return bound;
}

}  // namespace

int FreePort() {
    for (int attempt = 0; attempt < 100; ++attempt) {
        int port = 0;
        int same = 0;
        if (Binds(SOCK_STREAM, 0, port) && Binds(SOCK_DGRAM, port, same)) return port;
    }
    throw std::runtime_error("no free port");
}

std::filesystem::path WriteTsigKey(const std::filesystem::path& folder, const std::string& name) {
    std::filesystem::path file = folder / (name + ".key");
    Put(file, Output("PATH=$PATH:/usr/sbin tsig-keygen -a hmac-sha256 " + name));
    chmod(file.c_str(), 0600);
    return file;
}

NameServer::NameServer(Make make) : key_(WriteTsigKey(folder_.path(), "update")) {
    for (int attempt = 0; attempt < 5; ++attempt) {
        port_ = FreePort();
        if (Start(Prepare(make, {folder_.path(), key_, port_}))) return;
    }
    throw std::runtime_error("no name server starts:\n" + Content(folder_.path() / "log"));
}

NameServer::~NameServer() { Stop(); }

bool NameServer::Start(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const std::string log = folder_.path() / "log";
    pid_ = fork();
    if (pid_ == 0) {
        const int out = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(out, STDOUT_FILENO);
        dup2(out, STDERR_FILENO);
        execv(arguments.front(), arguments.data());
        _exit(127);
    }
    for (int i = 0; i < 600; ++i) {
        if (waitpid(pid_, nullptr, WNOHANG) == pid_) break;
        if (Answers()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    Stop();
    return false;
}

void NameServer::Stop() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

// Somebody else may have taken the port: some servers go on without it.
bool NameServer::Answers() const {
    return Dig("example.test SOA").find("hostmaster.example.test.") != std::string::npos;
}

std::string NameServer::Txt(const std::string& name) const { return Dig(name + " TXT | LC_ALL=C sort"); }

std::string NameServer::Ttl(const std::string& name) const {
    return Output("dig -r +tcp +noall +answer @127.0.0.1 -p " + std::to_string(port_) + " " + name +
                  " TXT | awk '{ printf \"%s\", $2; exit }'");
}

std::string NameServer::Dig(const std::string& arguments) const {
    return Output("dig -r +tcp +tries=1 +time=2 +short @127.0.0.1 -p " + std::to_string(port_) + " " +
                  arguments);
}

}  // namespace parts
