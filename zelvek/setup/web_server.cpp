#include "zelvek/setup/web_server.h"

#include <algorithm>
#include <system_error>

#include "vek/str.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/base/durable.h"
#include "zelvek/base/error.h"
#include "zelvek/base/folder.h"
#include "zelvek/base/text.h"

namespace zelvek::setup {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLargestFile = 1UL << 20;
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kFileMode = 0644;
constexpr const char* kSnippet = "snippets/zelvek.conf";
constexpr const char* kHead = "# Made by \"zelvek setup\".\n";

/// What stands in the file without comments; empty where none can be read.
std::string Directives(const fs::path& file) {
    std::error_code error;
    const auto content = ReadSmallFile(fs::canonical(file, error), kLargestFile);
    std::string directives;
    for (std::string line : str::Split(content.value_or(""), "\n"))
        directives += str::GetWord(line, '#') + "\n";
    return directives;
}

/// The words of directives: what stands between white space, braces and semicolons.
std::vector<std::string> WordsIn(std::string directives) {
    std::replace_if(
        directives.begin(), directives.end(),
        [](char c) {
            return c == ';' || c == '{' || c == '}' || c == '\t' || c == '\n' || c == '\r' || c == '"';
        },
        ' ');
    return str::Split(directives, " ");
}

bool HasWord(const std::vector<std::string>& words, const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

/// All files with sites of nginx.
std::vector<fs::path> Sites(const WebServer& web) {
    std::vector<fs::path> files{web.folder / "nginx.conf"};
    for (const char* name : {"sites-enabled", "conf.d"}) {
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(web.folder / name, error))
            files.push_back(entry.path());
    }
    return files;
}

fs::path AnswerSitePath(const WebServer& web, const std::string& name) {
    return web.folder / "conf.d" / ("zelvek-" + name + ".conf");
}

/// In quotes, as both servers take it.
std::string Quoted(const fs::path& folder) {
    const std::string text = (folder / "").string();
    if (!IsPlain(text) || text.find_first_of("\"\\$%") != std::string::npos)
        throw Error(Code::kValue, "answers-dir", text,
                    "\"" + Printable(text) + "\" cannot stand in a web server's configuration");
    return "\"" + text + "\"";
}

std::string NginxAnswers(const fs::path& answers) {
    return std::string(kHead) +
           "# Each site that includes this serves the answers that prove its names to authorities.\n"
           "location ^~ /.well-known/acme-challenge/ {\n"
           "    alias " +
           Quoted(answers) +
           ";\n"
           "    default_type text/plain;\n"
           "    auth_basic off;\n"
           "    allow all;\n"
           "}\n";
}

std::string ApacheAnswers(const fs::path& answers) {
    return std::string(kHead) +
           "# Each site serves the answers that prove its names to authorities.\n"
           "Alias /.well-known/acme-challenge/ " +
           Quoted(answers) + "\n<Directory " + Quoted(answers) +
           ">\n"
           "    Options None\n"
           "    AllowOverride None\n"
           "    ForceType text/plain\n"
           "    Require all granted\n"
           "</Directory>\n";
}

/// A file that is there stays, whoever has changed it, provided that it serves this folder.
bool IsThere(const fs::path& path, const fs::path& answers) {
    if (!fs::exists(fs::symlink_status(path))) return false;
    if (Directives(path).find((answers / "").string()) != std::string::npos) return true;
    throw Error(Code::kExists, path.string() + " is there, and does not serve " + answers.string() +
                                   ": remove it, or have it serve that folder");
}

ConfigFile EnablingLink(const WebServer& web) {
    ConfigFile link{web.folder / "conf-enabled" / "zelvek.conf", "", "../conf-available/zelvek.conf"};
    link.there = fs::exists(fs::symlink_status(link.path));
    if (link.there && !fs::exists(link.path))
        throw Error(Code::kExists, link.path.string() + " leads nowhere: remove it");
    return link;
}

}  // namespace

WebServer FindWebServer(const fs::path& etc, const std::string& wished) {
    WebServer nginx{Server::kNginx, etc / "nginx"};
    WebServer apache{Server::kApache, etc / "apache2"};
    const bool has_nginx = fs::is_directory(nginx.folder);
    const bool has_apache = fs::is_directory(apache.folder);
    if (has_nginx && (wished == "nginx" || (wished.empty() && !has_apache))) return nginx;
    if (has_apache && (wished == "apache" || (wished.empty() && !has_nginx))) return apache;
    if (has_nginx && has_apache)
        throw Error(Code::kValue, "webserver", wished,
                    "there are nginx and Apache: say --webserver nginx or --webserver apache");
    throw Error(Code::kMissed, "webserver", wished,
                "there is no " +
                    (wished == "nginx"    ? nginx.folder.string()
                     : wished == "apache" ? apache.folder.string()
                                          : nginx.folder.string() + " and no " + apache.folder.string()) +
                    ": install the web server first (apt install nginx)");
}

std::vector<ConfigFile> AnswerFiles(const WebServer& web, const fs::path& answers) {
    if (web.server == Server::kNginx) {
        ConfigFile snippet{web.folder / kSnippet, NginxAnswers(answers)};
        snippet.there = IsThere(snippet.path, answers);
        return {snippet};
    }
    ConfigFile file{web.folder / "conf-available" / "zelvek.conf", ApacheAnswers(answers)};
    file.there = IsThere(file.path, answers);
    return {file, EnablingLink(web)};
}

ConfigFile AnswerSite(const WebServer& web, const std::vector<std::string>& names) {
    const fs::path path = AnswerSitePath(web, names.front());
    std::string list;
    for (const std::string& name : names) str::inpl::Append(list, name, " ");
    ConfigFile site{path,
                    std::string(kHead) +
                        "# Serves the answers of these names, and nothing else. Remove it when a site of "
                        "theirs does.\n"
                        "server {\n"
                        "    listen 80;\n"
                        "    listen [::]:80;\n"
                        "    server_name " +
                        list + ";\n    include " + kSnippet +
                        ";\n"
                        "    location / { return 404; }\n"
                        "}\n"};
    site.there = fs::exists(fs::symlink_status(path));
    for (const fs::path& other : Sites(web)) {
        if (other == path) continue;
        const std::vector<std::string> words = WordsIn(Directives(other));
        for (const std::string& name : names) {
            if (HasWord(words, name))
                throw Error(Code::kExists, other.string() + " names " + name + " already: add \"include " +
                                               kSnippet + ";\" to that site instead");
        }
    }
    return site;
}

bool IncludesAnswers(const WebServer& web, const std::string& name) {
    bool named = false;
    bool includes_for_all = false;
    for (const fs::path& site : Sites(web)) {
        const std::vector<std::string> words = WordsIn(Directives(site));
        const bool includes = HasWord(words, kSnippet) || HasWord(words, (web.folder / kSnippet).string());
        if (includes && HasWord(words, name)) return true;
        named = named || HasWord(words, name);
        includes_for_all = includes_for_all || (includes && HasWord(words, "default_server"));
    }
    return includes_for_all && !named;
}

void Write(const ConfigFile& file) {
    if (file.there) return;
    MakeFolders(file.path.parent_path(), kFolderMode);
    if (file.target.empty()) {
        durable::Replace(file.path, file.content, kFileMode);
        return;
    }
    std::error_code error;
    fs::create_symlink(file.target, file.path, error);
    if (error) throw Error(Code::kIo, "making " + file.path.string() + ": " + error.message());
}

std::string LinesOfSite(const WebServer& web, const std::vector<std::string>& names, const fs::path& place) {
    std::string list;
    for (const std::string& name : names) str::inpl::Append(list, name, " ");
    const std::string certificate = (place / "fullchain.pem").string();
    const std::string key = (place / "privkey.pem").string();
    if (web.server == Server::kApache) {
        return "In the site's <VirtualHost *:443>, with \"a2enmod ssl\":\n\n"
               "    SSLEngine on\n"
               "    SSLCertificateFile    " +
               certificate + "\n    SSLCertificateKeyFile " + key + "\n";
    }
    const std::string answers = "In the site's server block for port 80:\n\n    server_name " + list +
                                ";\n    include " + kSnippet + ";\n\n";
    return (names.empty() ? "" : answers) +
           "In the site's server block for port 443:\n\n"
           "    listen 443 ssl;\n"
           "    listen [::]:443 ssl;\n"
           "    ssl_certificate     " +
           certificate + ";\n    ssl_certificate_key " + key + ";\n";
}

}  // namespace zelvek::setup
