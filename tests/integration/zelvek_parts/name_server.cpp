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

NameServer::NameServer() : key_(WriteTsigKey(folder_.path(), "update")) {
    for (int attempt = 0; attempt < 5; ++attempt) {
        port_ = FreePort();
        WriteConfiguration();
        if (Start()) return;
    }
    throw std::runtime_error("named does not start:\n" + Content(folder_.path() / "log"));
}

NameServer::~NameServer() { Stop(); }

void NameServer::WriteConfiguration() const {
    const std::string folder = folder_.path();
    Put(folder + "/named.conf",
        "include \"" + key_.string() +
            "\";\n"
            "options { directory \"" +
            folder + "\"; managed-keys-directory \"" + folder +
            "\"; pid-file none; session-keyfile none; listen-on port " + std::to_string(port_) +
            " { 127.0.0.1; }; listen-on-v6 { none; }; recursion no; dnssec-validation no; };\n"
            "controls { };\n"
            "zone \"example.test\" { type primary; file \"example.test.db\"; "
            "allow-update { key \"update\"; }; };\n"
            "zone \"static.test\" { type primary; file \"static.test.db\"; };\n");
    const std::string records = "$TTL 60\n@ SOA ns hostmaster 1 3600 600 86400 45\n@ NS ns\nns A 127.0.0.1\n";
    Put(folder + "/example.test.db", records + "_acme-challenge.alias CNAME ns\n");
    Put(folder + "/static.test.db", records);
}

bool NameServer::Start() {
    const std::string configuration = folder_.path() / "named.conf";
    const std::string log = folder_.path() / "log";
    pid_ = fork();
    if (pid_ == 0) {
        const int out = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(out, STDERR_FILENO);
        execl("/usr/sbin/named", "named", "-c", configuration.c_str(), "-g", nullptr);
        _exit(127);
    }
    for (int i = 0; i < 300; ++i) {
        if (waitpid(pid_, nullptr, WNOHANG) == pid_) break;
        if (Answers()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
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

// Somebody else may have taken the port: named goes on without it.
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
