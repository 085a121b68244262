// From a server with a web server and the service to the first certificate.
#include "zelvek/setup/setup_command.h"

#include <json/json.h>

#include <cstdlib>
#include <fstream>
#include <memory>

#include "service.h"
#include "zelvek/certificates/placeholder.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;

class SetUpCommand : public ServiceTest {
protected:
    void MakeNginx() const {
        for (const char* folder : {"sites-enabled", "conf.d", "logs"})
            fs::create_directories(Path("etc") / "nginx" / folder);
        std::ofstream(Path("etc") / "nginx" / "nginx.conf")
            << "events {}\nhttp {\n    access_log off;\n    include sites-enabled/*;\n    include "
               "conf.d/*.conf;\n}\n";
    }

    void MakeApache() const {
        for (const char* folder : {"conf-available", "conf-enabled"})
            fs::create_directories(Path("etc") / "apache2" / folder);
    }

    Ended SetUpFor(const std::string& domain, std::vector<std::string> further = {}) {
        std::ofstream(Path("conf")) << "database=" << Database().string()
                                    << "\nanswers-dir=" << Path("answers").string()
                                    << "\ncerts-dir=" << Path("certs").string() << "\nplugin=" << TEST_PLUGIN
                                    << "\nreload-command=" << reload_ << "\n";
        std::vector<std::string> words{"setup",  "--etc", Path("etc"), "--config", Path("conf"),
                                       "--user", "anna",  "--domain",  domain};
        words.insert(words.end(), further.begin(), further.end());
        return Zelvek(words);
    }

    /// Whether the real nginx takes the configuration.
    bool NginxAccepts() const {
        const std::string line = "/usr/sbin/nginx -t -p " + (Path("etc") / "nginx").string() +
                                 "/ -c nginx.conf -g 'pid nginx.pid;' >" + Path("nginx.out").string() +
                                 " 2>&1";
        return std::system(line.c_str()) == 0;
    }

    void WriteSite(const std::string& lines) const {
        std::ofstream(Path("etc") / "nginx" / "sites-enabled" / "shop")
            << "server {\n    listen unix:" << Path("web.sock").string() << " ssl;\n    " << lines << "\n}\n";
    }

    static std::string SiteOf(const std::string& domain, const fs::path& place) {
        return "server_name " + domain + ";\n    include snippets/zelvek.conf;\n    ssl_certificate " +
               (place / "fullchain.pem").string() + ";\n    ssl_certificate_key " +
               (place / "privkey.pem").string() + ";";
    }

    fs::path Place(const std::string& domain) const { return Path("certs") / "anna" / domain; }

    std::size_t Jobs() const { return Ask("func=zelvek.job.list").xml().GetNodes("/doc/elem").size(); }

    std::string reload_ = "true";
};

// Behaviours of: Command line

// Behaviour: The set-up takes a server with nginx to its first certificate: it shows and writes what sites
//   include, puts a placeholder with which nginx starts, waits for the site, and then follows the job
TEST_F(SetUpCommand, TakesNginxToItsFirstCertificate) {
    Start({{"--scheduler", "on"}});
    MakeNginx();
    const std::string domain = "installs-shop.example";
    const Ended first = SetUpFor(domain, {"--alias", "www." + domain});
    EXPECT_EQ(first.status, 3) << first.err;
    const fs::path snippet = Path("etc") / "nginx" / "snippets" / "zelvek.conf";
    EXPECT_NE(ReadFile(snippet).find("alias \"" + Path("answers").string() + "/\""), std::string::npos);
    EXPECT_NE(first.out.find("writes " + snippet.string()), std::string::npos) << first.out;
    EXPECT_NE(first.out.find("ssl_certificate     " + (Place(domain) / "fullchain.pem").string()),
              std::string::npos);
    EXPECT_TRUE(IsPlaceholder(ReadFile(Place(domain) / "cert.pem")));
    EXPECT_EQ(Jobs(), 0U) << "an authority would find nothing";

    WriteSite(SiteOf(domain, Place(domain)));
    EXPECT_TRUE(NginxAccepts()) << ReadFile(Path("nginx.out"));
    const Ended second = SetUpFor(domain, {"--alias", "www." + domain});
    EXPECT_EQ(second.status, 0) << second.out << second.err;
    EXPECT_NE(second.out.find(snippet.string() + " is there"), std::string::npos);
    EXPECT_NE(second.out.find("job 1 added"), std::string::npos);
    const Ended third = SetUpFor(domain, {"--alias", "www." + domain, "--json"});
    EXPECT_EQ(third.status, 0) << third.err;
    EXPECT_NE(third.out.find("\"installed\""), std::string::npos) << third.out;
    EXPECT_EQ(Jobs(), 1U);
}

// Behaviour: For Apache the set-up enables an alias for all sites by a link, reloads the web server and
// follows
//   the job; a run that fails ends it with what the job says
TEST_F(SetUpCommand, TakesApacheToItsFirstCertificate) {
    Start({{"--scheduler", "on"}});
    MakeApache();
    reload_ = "touch " + Path("reloaded").string();
    EXPECT_EQ(SetUpFor("installs-shop.example").status, 0);
    const fs::path enabled = Path("etc") / "apache2" / "conf-enabled" / "zelvek.conf";
    EXPECT_EQ(fs::read_symlink(enabled), "../conf-available/zelvek.conf");
    EXPECT_NE(ReadFile(enabled).find("Alias /.well-known/acme-challenge/"), std::string::npos);
    EXPECT_TRUE(fs::exists(Path("reloaded")));
    const Ended stopped = SetUpFor("stops-shop.example");
    EXPECT_EQ(stopped.status, 1) << stopped.out;
    EXPECT_NE(stopped.out.find("stopped"), std::string::npos) << stopped.out;
}

// Behaviour: A dry run of the set-up shows every file with its content, and makes none
TEST_F(SetUpCommand, ADryRunDoesNothing) {
    MakeNginx();
    const Ended ended = SetUpFor("shop.example", {"--dry-run", "--make-site"});
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_NE(ended.out.find("location ^~ /.well-known/acme-challenge/ {"), std::string::npos);
    EXPECT_NE(ended.out.find("        server_name shop.example;"), std::string::npos) << "as it will stand";
    EXPECT_EQ(ended.out.find("\n    server_name shop.example;"), std::string::npos) << "its site has that";
    EXPECT_FALSE(fs::exists(Path("etc") / "nginx" / "snippets"));
    EXPECT_TRUE(fs::is_empty(Path("etc") / "nginx" / "conf.d"));
    EXPECT_FALSE(fs::exists(Path("certs")));
}

// Behaviour: The set-up changes no file that is there: one that does not serve the answers is told, and so is
// a
//   site that has the names already
TEST_F(SetUpCommand, LeavesWhatIsThere) {
    Start({{"--scheduler", "on"}});
    MakeNginx();
    const fs::path snippet = Path("etc") / "nginx" / "snippets" / "zelvek.conf";
    fs::create_directories(snippet.parent_path());
    std::ofstream(snippet) << "# mine: " << Path("answers").string() << "/\n";
    const Ended foreign = SetUpFor("installs-shop.example");
    EXPECT_EQ(foreign.status, 1);
    EXPECT_NE(foreign.err.find("does not serve"), std::string::npos) << foreign.err;
    const std::string own =
        "location /.well-known/acme-challenge/ { root " + Path("answers").string() + "/; }\n";
    std::ofstream(snippet) << own;
    WriteSite("server_name installs-shop.example;");
    EXPECT_NE(
        SetUpFor("installs-shop.example", {"--make-site"}).err.find("names installs-shop.example already"),
        std::string::npos);
    EXPECT_EQ(SetUpFor("installs-shop.example").status, 3) << "the site does not include the answers";
    EXPECT_EQ(SetUpFor("installs-shop.example", {"--ready"}).status, 0);
    EXPECT_EQ(SetUpFor("installs-blog.example", {"--make-site"}).status, 0);
    EXPECT_TRUE(fs::exists(Path("etc") / "nginx" / "conf.d" / "zelvek-installs-blog.example.conf"));
    EXPECT_EQ(ReadFile(snippet), own);
}

// Behaviour: The set-up says what is missing before it asks for a certificate: a web server, which one of
// two,
//   a domain of the user's own, a configuration with which the web server can be reloaded
TEST_F(SetUpCommand, SaysWhatIsMissing) {
    Start({{"--scheduler", "on"}});
    EXPECT_NE(SetUpFor("shop.example").err.find("install the web server first"), std::string::npos);
    MakeApache();
    MakeNginx();
    EXPECT_NE(SetUpFor("shop.example").err.find("--webserver nginx or --webserver apache"),
              std::string::npos);
    Zelvek({"domain", "add", "shop.example", "--user", "berta"});
    const Ended foreign = SetUpFor("shop.example", {"--webserver", "apache"});
    EXPECT_EQ(foreign.status, 1);
    EXPECT_FALSE(fs::exists(Place("shop.example")));
    EXPECT_EQ(SetUpFor("../shop", {"--webserver", "apache"}).status, 1);
    reload_ = "echo broken site; false";
    const Ended broken = SetUpFor("installs-shop.example", {"--webserver", "apache"});
    EXPECT_EQ(broken.status, 1);
    EXPECT_NE(broken.err.find("broken site"), std::string::npos) << broken.err;
    EXPECT_EQ(Jobs(), 0U);
}

}  // namespace

}  // namespace zelvek::testing
