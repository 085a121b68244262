#pragma once

#include <map>
#include <string>
#include <vector>

namespace zelvek::page {

/// One request of a browser, as far as the page looks at it.
struct Request {
    std::string method = {};
    std::string path = {};
    std::map<std::string, std::string> query = {};
    std::string host = {};
    std::string origin = {};
    std::string cookie = {};  // the session's
    std::string csrf = {};
    std::string language = {};           // what the browser's user reads
    std::string agent = {};              // what the browser calls itself
    std::string content_type = {};       // of the body
    std::string known = {};              // the version of a file that the browser has
    std::vector<std::string> user = {};  // what the web server before the page says, in each of its headers
    bool by_itself = false;              // the page asks, nobody has done anything
    std::string body = {};
};

struct Response {
    unsigned status = 200;
    std::string type = "application/json";
    std::string body = {};
    std::map<std::string, std::string> headers = {};
    bool stream = false;     // of changes; it has no body
    std::string watch = {};  // for a stream: the session that it lasts as long as; empty for another way in
};

}  // namespace zelvek::page
