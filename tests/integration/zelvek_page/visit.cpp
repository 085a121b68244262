#include "visit.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <memory>

#include "vek/str.h"

namespace zelvek::testing {

namespace {

int FreePort() {
    const int probe = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* any = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(::bind(probe, any, size), 0);
    ::getsockname(probe, any, &size);
    ::close(probe);
    return ntohs(address.sin_port);
}

Reply ReplyOf(const std::string& text) {
    Reply reply;
    const std::size_t end = text.find("\r\n\r\n");
    if (!text.starts_with("HTTP/1.1 ") || end == std::string::npos) return reply;
    reply.status = str::Int(text.substr(9, 3));
    reply.head = text.substr(0, end + 2);
    reply.body = text.substr(end + 4);
    return reply;
}

}  // namespace

Json::Value Reply::Json() const {
    Json::Value value;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(body.data(), body.data() + body.size(), &value, nullptr)) << body;
    return value;
}

std::string Reply::Header(const std::string& name) const {
    const std::size_t begin = head.find("\r\n" + name + ": ");
    if (begin == std::string::npos) return "";
    const std::size_t from = begin + name.size() + 4;
    return head.substr(from, head.find("\r\n", from) - from);
}

void PageTest::StartPage(std::map<std::string, std::string> options) {
    if (port_ == 0) port_ = FreePort();
    host_ = "127.0.0.1:" + std::to_string(port_);
    options.insert({{"--page-listen", host_}, {"--page-files", PACKAGING "/page"}});
    Start(options);
}

void PageTest::StartPageOnSocket() {
    on_socket_ = true;
    host_ = "panel.example";
    Start({{"--page-listen", Path("page.sock").string()},
           {"--page-files", PACKAGING "/page"},
           {"--page-url", "https://panel.example/certificates"},
           {"--page-user-header", "X-Panel-User"}});
}

int PageTest::Connect() const {
    const int connection = ::socket(on_socket_ ? AF_UNIX : AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port_));
    sockaddr_un path{};
    path.sun_family = AF_UNIX;
    Path("page.sock").string().copy(path.sun_path, sizeof(path.sun_path) - 1);
    const auto* any = on_socket_ ? reinterpret_cast<sockaddr*>(&path) : reinterpret_cast<sockaddr*>(&address);
    if (::connect(connection, any, on_socket_ ? sizeof path : sizeof address) == 0) return connection;
    ::close(connection);
    return -1;
}

std::string PageTest::Bytes(const std::string& text, int seconds) const {
    const int connection = Connect();
    if (connection < 0) return "";
    ::send(connection, text.data(), text.size(), MSG_NOSIGNAL);
    std::string all;
    char some[4096];
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (std::chrono::steady_clock::now() < end) {
        pollfd waiting{connection, POLLIN, 0};
        if (::poll(&waiting, 1, 100) == 0) continue;
        const ssize_t size = ::recv(connection, some, sizeof some, 0);
        if (size <= 0) break;
        all.append(some, static_cast<std::size_t>(size));
    }
    ::close(connection);
    return all;
}

Reply PageTest::Send(const std::string& method, const std::string& path, const Headers& headers,
                     const std::string& body) const {
    Headers all{{"Host", host_}, {"Cookie", cookie_}, {"X-Zelvek-Csrf", csrf_}};
    if (method == "POST") all["Content-Type"] = "application/json";
    for (const auto& [name, value] : headers) all[name] = value;
    std::string text = method + " " + path + " HTTP/1.1\r\n";
    for (const auto& [name, value] : all) text += value.empty() ? "" : name + ": " + value + "\r\n";
    if (method == "POST") text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    return ReplyOf(Bytes(text + "\r\n" + body));
}

std::string PageTest::Token(const std::string& user) {
    std::vector<std::string> words{"page", "login", "--json"};
    if (!user.empty()) words.insert(words.end(), {"--user", user});
    const Ended ended = Zelvek(words);
    EXPECT_EQ(ended.status, 0) << ended.err;
    const std::size_t begin = ended.out.find("#login=") + 7;
    return ended.out.substr(begin, ended.out.find('"', begin) - begin);
}

Reply PageTest::LogInWith(const std::string& token) const {
    return Post("/api/login", {{"Cookie", ""}}, "{\"token\":\"" + token + "\"}");
}

void PageTest::LogIn(const std::string& user) {
    const Reply reply = LogInWith(Token(user));
    EXPECT_EQ(reply.status, 200) << reply.body;
    const std::string set = reply.Header("Set-Cookie");
    cookie_ = set.substr(0, set.find(';'));
    csrf_ = Get("/api/session").Json()["csrf"].asString();
}

}  // namespace zelvek::testing
