#include "zelvek/store/place.h"

#include <algorithm>
#include <array>

#include "zelvek/base/error.h"
#include "zelvek/base/form.h"
#include "zelvek/base/text.h"

namespace zelvek {

namespace {

constexpr const char* kBeforeHost = "://";

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

/// Empty where the text is no URL.
std::string SchemeOf(const std::string& text) {
    const std::size_t end = text.find(kBeforeHost);
    if (end == std::string::npos || end == 0) return "";
    return std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end), &IsLetter)
               ? text.substr(0, end)
               : "";
}

/// Who connects, and the password after a colon, as the client library finds them.
std::string UserPart(const std::string& rest) {
    const std::size_t end = rest.find_first_of("@/");
    return end == std::string::npos || rest[end] == '/' ? "" : rest.substr(0, end);
}

bool HasPassword(const std::string& rest) {
    if (UserPart(rest).find(':') != std::string::npos) return true;
    std::size_t at = rest.find('?');
    while (at != std::string::npos) {
        const std::size_t begin = at + 1;
        at = rest.find('&', begin);
        const std::string word = rest.substr(begin, at == std::string::npos ? at : at - begin);
        const std::string key = FormDecode(word.substr(0, word.find('=')));
        if (key == "password" || key == "sslpassword") return true;
    }
    return false;
}

}  // namespace

Place::Place(const std::string& text) {
    const std::string scheme = SchemeOf(text);
    if (scheme.empty()) {
        file_ = std::filesystem::absolute(text);
        return;
    }
    if (scheme != "postgresql" && scheme != "postgres") {
        throw Error(Code::kValue,
                    "a database is a file, or the URL of a database that a PostgreSQL server "
                    "has (postgresql://...), not \"" +
                        Printable(scheme) + "://...\"");
    }
    if (HasPassword(text.substr(scheme.size() + std::string(kBeforeHost).size()))) {
        throw Error(Code::kValue,
                    "the URL of a database holds no password: the client library reads it from "
                    "the file that passfile=... names in the URL, or from ~/.pgpass");
    }
    url_ = text;
    engine_ = "postgresql";
}

std::string Place::Shown() const {
    return IsFile() ? file_.string() : Printable(url_.substr(0, url_.find('?')));
}

}  // namespace zelvek
