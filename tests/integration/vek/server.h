#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

typedef struct ssl_st SSL;
typedef struct ssl_ctx_st SSL_CTX;

/// Small servers for the tests: a thread that says on each connection just what its handler says, right or
/// wrong.
namespace vek_test {

/// A folder of one test's own, removed with everything in it.
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    std::filesystem::path path() const { return path_; }
    std::string file(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

/// An environment variable for as long as this lives.
class Variable {
public:
    Variable(std::string name, const std::string& value);
    ~Variable();
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    std::string name_;
    std::string before_;
    bool was_set_;
};

struct HttpRequest {
    std::string head;  // request line to blank line
    std::string body;
};

/// One accepted connection. Reading gives an empty text at its end.
class Connection {
public:
    Connection(int fd, SSL* ssl) : fd_(fd), ssl_(ssl) {}
    std::string Read();
    /// False where the other side has gone.
    bool Write(const std::string& text);
    HttpRequest ReadRequest();
    /// Waits until the other side closes.
    void AwaitEnd();
    SSL* ssl() const { return ssl_; }

private:
    int fd_;
    SSL* ssl_;
};

/// A complete answer with its length, after which the connection is closed.
std::string Answer(int status, const std::string& header_lines, const std::string& body);

/// The same, with a header block of just this many bytes, status line and blank line among them.
std::string AnswerWithHeaderOf(std::size_t bytes, const std::string& body);

class Server {
public:
    using Handler = std::function<void(Connection&)>;

    /// Listens on a free port of 127.0.0.1; with TLS where `tls` (kept by the caller) is given.
    explicit Server(Handler handler, SSL_CTX* tls = nullptr);

    /// Listens on a socket of the file system.
    Server(Handler handler, const std::string& socket_path);

    /// Ends connections that are open still.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    int port() const { return port_; }
    /// "http://127.0.0.1:port/", or https on "localhost" with TLS.
    std::string url() const;
    int connections() const { return connections_; }

private:
    void Listen(int fd);
    void Run();
    void Serve(int fd);

    Handler handler_;
    SSL_CTX* tls_ = nullptr;
    int port_ = 0;
    int listener_ = -1;
    std::atomic<int> connections_{0};
    std::atomic<bool> ending_{false};
    std::mutex mutex_;
    int open_ = -1;  // the connection being served
    std::thread thread_;
};

/// A service on `folder/name.sock`; what it was asked, in order.
class Service {
public:
    using Responder = std::function<std::string(const std::string& query)>;

    Service(const std::string& folder, const std::string& name, Responder responder);
    std::vector<HttpRequest> requests();

private:
    std::mutex mutex_;
    std::vector<HttpRequest> requests_;
    std::unique_ptr<Server> server_;
};

}  // namespace vek_test
