#include "zelvek/page/settings.h"

#include <pwd.h>
#include <sys/un.h>

#include <algorithm>

#include "zelvek/base/error.h"
#include "zelvek/base/listener.h"
#include "zelvek/base/text.h"

namespace zelvek::page {

namespace {

bool IsHeaderPart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
}

bool IsUrlPart(char c) {
    return c > ' ' && c < '\x7f' && std::string("\"'<>\\^`{|}?#;,").find(c) == std::string::npos;
}

Error NoUrl(const std::string& url) {
    return Error(Code::kValue, "--page-url: \"" + Printable(url) +
                                   "\" is no address of a page, such as https://panel.example/certificates/");
}

}  // namespace

bool IsSocketPath(const std::string& listen) { return listen.starts_with('/'); }

Address AddressOf(const Settings& settings) {
    std::string url = settings.url;
    if (url.empty()) url = "http://" + settings.listen + "/";
    const bool tls = url.starts_with("https://");
    if ((!tls && !url.starts_with("http://")) || !std::all_of(url.begin(), url.end(), &IsUrlPart))
        throw NoUrl(url);
    if (!url.ends_with('/')) url += '/';
    const std::size_t begin = url.find("//") + 2;
    const std::size_t end = url.find('/', begin);
    if (end == std::string::npos || end == begin || url.find('@') != std::string::npos) throw NoUrl(url);
    return {url, url.substr(begin, end - begin), url.substr(end), tls};
}

void CheckSettings(const Settings& settings) {
    if (settings.listen.empty()) return;
    const bool socket = IsSocketPath(settings.listen);
    if (socket && settings.listen.size() >= sizeof(sockaddr_un::sun_path))
        throw Error(Code::kValue, "--page-listen: the path of a socket is shorter than that");
    if (!socket && !IsLoopback(settings.listen))
        throw Error(Code::kValue, "--page-listen: other machines can reach " + Printable(settings.listen) +
                                      "; let a web server with TLS stand before the page");
    if (socket && settings.url.empty())
        throw Error(Code::kValue, "--page-url has to say which address people open before the socket");
    if (!settings.user_header.empty() && !socket)
        throw Error(Code::kValue, "--page-user-header: anybody could say who they are but on a unix socket");
    if (!std::all_of(settings.user_header.begin(), settings.user_header.end(), &IsHeaderPart))
        throw Error(Code::kValue,
                    "--page-user-header: \"" + Printable(settings.user_header) + "\" names no header");
    if (!settings.peer.empty() && ::getpwnam(settings.peer.c_str()) == nullptr)
        throw Error(Code::kValue, "--page-peer: there is no user \"" + Printable(settings.peer) + "\"");
    AddressOf(settings);
}

}  // namespace zelvek::page
