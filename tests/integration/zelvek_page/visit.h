#pragma once

#include <json/json.h>

#include <map>
#include <string>

#include "../zelvek/service.h"

namespace zelvek::testing {

struct Reply {
    int status = 0;  // 0 where nothing came
    std::string head;
    std::string body;

    Json::Value Json() const;
    std::string Header(const std::string& name) const;
};

/// A service with a page, and what a browser does with it.
class PageTest : public ServiceTest {
protected:
    using Headers = std::map<std::string, std::string>;

    /// Starts the service with its page on a port of this machine.
    void StartPage(std::map<std::string, std::string> options = {});

    /// Starts it with its page on a socket, behind a web server that says who asks in the header
    /// X-Panel-User.
    void StartPageOnSocket();

    /// One request with the session's cookie and token, unless `headers` say otherwise; an empty value leaves
    /// one out.
    Reply Send(const std::string& method, const std::string& path, const Headers& headers = {},
               const std::string& body = "") const;
    Reply Get(const std::string& path, const Headers& headers = {}) const {
        return Send("GET", path, headers);
    }
    Reply Post(const std::string& path, const Headers& headers = {}, const std::string& body = "{}") const {
        return Send("POST", path, headers, body);
    }

    /// These bytes, and all that comes back within that many seconds.
    std::string Bytes(const std::string& text, int seconds = 10) const;

    /// The token of a new link.
    std::string Token(const std::string& user = "");
    Reply LogInWith(const std::string& token) const;

    /// Follows a new link; cookie and token are this session's from then on.
    void LogIn(const std::string& user = "");

    /// A connected socket; -1 where nobody lets us connect.
    int Connect() const;

    std::string host_;
    std::string cookie_;  // "zelvek=..."
    std::string csrf_;

private:
    int port_ = 0;
    bool on_socket_ = false;
};

}  // namespace zelvek::testing
