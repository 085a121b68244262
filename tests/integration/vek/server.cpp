#include "server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace vek_test {
namespace {

void Require(bool condition, const char* what) {
    if (!condition) throw std::runtime_error(std::string("test server: ") + what);
}

std::size_t ContentLength(const std::string& head) {
    const auto at = head.find("Content-Length: ");
    return at == std::string::npos ? 0 : std::stoul(head.substr(at + 16));
}

}  // namespace

TempFolder::TempFolder() {
    std::string name = std::filesystem::temp_directory_path() / "vek_test_XXXXXX";
    Require(mkdtemp(name.data()) != nullptr, "mkdtemp");
    path_ = name;
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

Variable::Variable(std::string name, const std::string& value) : name_(std::move(name)) {
    const char* before = getenv(name_.c_str());
    was_set_ = before != nullptr;
    if (was_set_) before_ = before;
    setenv(name_.c_str(), value.c_str(), 1);
}

Variable::~Variable() {
    if (was_set_) {
        setenv(name_.c_str(), before_.c_str(), 1);
    } else {
        unsetenv(name_.c_str());
    }
}

std::string Connection::Read() {
    char chunk[16384];
    const auto count =
        ssl_ != nullptr ? SSL_read(ssl_, chunk, sizeof(chunk)) : recv(fd_, chunk, sizeof(chunk), 0);
    return count > 0 ? std::string(chunk, static_cast<std::size_t>(count)) : std::string();
}

bool Connection::Write(const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const auto left = text.size() - at;
        const auto count = ssl_ != nullptr ? SSL_write(ssl_, text.data() + at, static_cast<int>(left))
                                           : send(fd_, text.data() + at, left, MSG_NOSIGNAL);
        if (count <= 0) return false;
        at += static_cast<std::size_t>(count);
    }
    return true;
}

HttpRequest Connection::ReadRequest() {
    std::string text;
    auto end = text.find("\r\n\r\n");
    while (end == std::string::npos) {
        const std::string more = Read();
        if (more.empty()) return {};
        text += more;
        end = text.find("\r\n\r\n");
    }
    HttpRequest request{text.substr(0, end + 4), text.substr(end + 4)};
    const auto length = ContentLength(request.head);
    while (request.body.size() < length) {
        const std::string more = Read();
        if (more.empty()) break;
        request.body += more;
    }
    return request;
}

void Connection::AwaitEnd() {
    while (!Read().empty()) {
    }
}

std::string Answer(int status, const std::string& header_lines, const std::string& body) {
    return "HTTP/1.1 " + std::to_string(status) + " Text\r\n" + header_lines +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string AnswerWithHeaderOf(std::size_t bytes, const std::string& body) {
    constexpr std::size_t kLine = 1000;
    const std::string line = "X-Line: " + std::string(kLine - 10, 'x') + "\r\n";
    const std::size_t rest = bytes - (Answer(200, "", body).size() - body.size());
    std::string lines;
    while (rest - lines.size() >= 2 * kLine) lines += line;
    lines += "X-Last: " + std::string(rest - lines.size() - 10, 'x') + "\r\n";
    return Answer(200, lines, body);
}

Server::Server(Handler handler, SSL_CTX* tls) : handler_(std::move(handler)), tls_(tls) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof(address);
    Require(bind(fd, generic, size) == 0 && getsockname(fd, generic, &size) == 0, "bind");
    port_ = ntohs(address.sin_port);
    Listen(fd);
}

Server::Server(Handler handler, const std::string& socket_path) : handler_(std::move(handler)) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    Require(socket_path.size() < sizeof(address.sun_path), "path");
    socket_path.copy(address.sun_path, socket_path.size());
    unlink(socket_path.c_str());
    Require(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0, "bind");
    Listen(fd);
}

Server::~Server() {
    ending_ = true;
    shutdown(listener_, SHUT_RDWR);
    {
        const std::lock_guard lock(mutex_);
        if (open_ >= 0) shutdown(open_, SHUT_RDWR);
    }
    thread_.join();
    close(listener_);
}

std::string Server::url() const {
    return (tls_ != nullptr ? "https://localhost:" : "http://127.0.0.1:") + std::to_string(port_) + "/";
}

void Server::Listen(int fd) {
    listener_ = fd;
    Require(listen(listener_, 16) == 0, "listen");
    thread_ = std::thread([this] { Run(); });
}

void Server::Run() {
    // OpenSSL writes without MSG_NOSIGNAL; the rest of the process keeps the default, which the tests rely
    // on.
    sigset_t sigpipe;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigpipe, nullptr);
    while (!ending_) {
        const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) continue;
        ++connections_;
        {
            const std::lock_guard lock(mutex_);
            open_ = fd;
        }
        if (!ending_) Serve(fd);
        const std::lock_guard lock(mutex_);
        open_ = -1;
        close(fd);
    }
}

void Server::Serve(int fd) {
    const std::unique_ptr<SSL, decltype(&SSL_free)> ssl(tls_ != nullptr ? SSL_new(tls_) : nullptr, &SSL_free);
    if (ssl) {
        SSL_set_fd(ssl.get(), fd);
        if (SSL_accept(ssl.get()) != 1) return;
    }
    Connection connection(fd, ssl.get());
    handler_(connection);
    if (ssl) SSL_shutdown(ssl.get());
}

Service::Service(const std::string& folder, const std::string& name, Responder responder) {
    const auto serve = [this, responder = std::move(responder)](Connection& connection) {
        const HttpRequest request = connection.ReadRequest();
        if (request.head.empty()) return;
        {
            const std::lock_guard lock(mutex_);
            requests_.push_back(request);
        }
        connection.Write(Answer(200, "Content-Type: text/xml\r\n", responder(request.body)));
    };
    server_ = std::make_unique<Server>(serve, folder + "/" + name + ".sock");
}

std::vector<HttpRequest> Service::requests() {
    const std::lock_guard lock(mutex_);
    return requests_;
}

}  // namespace vek_test
