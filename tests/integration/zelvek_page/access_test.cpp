// Who gets in to the service's page, and what they may do there.
#include <gmock/gmock.h>
#include <unistd.h>

#include "visit.h"
#include "zelvek/page/api.h"

namespace zelvek::testing {

namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class PageAccess : public PageTest {};

// Behaviours of: The page

// Behaviour: A link opens the page once; the session's cookie is out of reach for code and for other sites,
// outlives a
//   restart of the service, and neither it nor the link's secret stands in the database
TEST_F(PageAccess, ALinkOpensThePageOnce) {
    StartPage();
    EXPECT_EQ(Get("/api/status").status, 401);
    const std::string token = Token();
    const Reply reply = LogInWith(token);
    ASSERT_EQ(reply.status, 200);
    const std::string set = reply.Header("Set-Cookie");
    EXPECT_THAT(set, HasSubstr("; HttpOnly; SameSite=Strict"));
    EXPECT_THAT(set, Not(HasSubstr("Secure"))) << "there is no TLS before it";
    EXPECT_EQ(LogInWith(token).status, 401);
    EXPECT_EQ(LogInWith("1-" + std::string(64, '0')).status, 401);
    for (const char* none : {"", "1", "1-", "-", "x-1", "99999999999999999999-1"})
        EXPECT_EQ(LogInWith(none).status, 401) << none;
    cookie_ = set.substr(0, set.find(';'));
    EXPECT_EQ(Get("/api/status").status, 200);
    Stop();
    const std::string database = ReadFile(Database());
    for (const std::string& text : {token, cookie_}) {
        const std::string secret = text.substr(text.find('-') + 1);
        EXPECT_EQ(secret.size(), 64U);
        EXPECT_EQ(database.find(secret), std::string::npos);
    }
    StartPage();
    EXPECT_EQ(Get("/api/status").status, 200);
    EXPECT_EQ(Get("/api/status", {{"Cookie", cookie_ + "0"}}).status, 401);
}

// Behaviour: A session ends by logging out, by `zelvek page sessions`, when nothing was done in it for some
// time though
//   the open page has asked by itself, and after its longest time
TEST_F(PageAccess, SessionsEnd) {
    StartPage({{"--page-idle", "2"}});
    LogIn();
    EXPECT_EQ(Post("/api/logout").status, 200);
    EXPECT_EQ(Get("/api/status").status, 401);
    LogIn();
    EXPECT_THAT(Zelvek({"page", "sessions"}).out, HasSubstr("all users"));
    EXPECT_EQ(Zelvek({"page", "sessions", "--end", "99"}).status, 1);
    EXPECT_EQ(Zelvek({"page", "sessions", "--end-all"}).out, "1 session ended\n");
    EXPECT_EQ(Get("/api/status").status, 401);
    LogIn();
    EXPECT_EQ(Get("/api/status", {{"X-Zelvek-Refresh", "1"}}).status, 200);
    EXPECT_TRUE(Eventually([&] { return Get("/api/status", {{"X-Zelvek-Refresh", "1"}}).status == 401; }));
    Stop();
    StartPage({{"--page-session", "2"}});
    LogIn();
    EXPECT_TRUE(Eventually([&] { return Get("/api/status").status == 401; }));
}

// Behaviour: A change that the page itself has not asked for changes nothing: without its token, with another
// one, from
//   another site, or as a form
TEST_F(PageAccess, ChangesComeFromThePageAlone) {
    StartPage();
    LogIn();
    const std::string id = AddJob();
    const std::string path = "/api/jobs/" + id + "/pause";
    for (const Headers& headers :
         {Headers{{"X-Zelvek-Csrf", ""}}, Headers{{"X-Zelvek-Csrf", std::string(64, '0')}},
          Headers{{"Origin", "http://evil.example"}}, Headers{{"Origin", "null"}},
          Headers{{"Content-Type", "text/plain"}}})
        EXPECT_EQ(Post(path, headers).status, 403);
    EXPECT_EQ(Get(path).status, 405);
    EXPECT_FALSE(Get("/api/jobs/" + id).Json()["paused"].asBool());
    EXPECT_EQ(Post(path, {{"Origin", "http://" + host_}}).status, 200);
    EXPECT_TRUE(Get("/api/jobs/" + id).Json()["paused"].asBool());
    const std::string old = csrf_;
    LogIn();
    EXPECT_EQ(Post(path, {{"X-Zelvek-Csrf", old}}).status, 403) << "another session's";
}

// Behaviour: A request by another name than the page's is answered with nothing of it
TEST_F(PageAccess, OtherNamesAreNotAnswered) {
    StartPage();
    LogIn();
    for (const std::string name : {"evil.example", "127.0.0.1", "localhost:1", "127.0.0.1:1"}) {
        EXPECT_EQ(Get("/", {{"Host", name}}).status, 421) << name;
        EXPECT_EQ(Get("/api/session", {{"Host", name}}).status, 421) << name;
    }
    EXPECT_EQ(Get("/", {{"Host", ""}}).status, 421);
}

// Behaviour: Every answer forbids code and styles but the page's own files, frames, guesses at its type, and
// copies of
//   what is told; files are asked for anew and sent only where they have changed
TEST_F(PageAccess, AnswersSayWhatBrowsersMayDo) {
    StartPage();
    for (const char* path : {"/", "/page.js", "/api/session", "/nothing"}) {
        const Reply reply = Get(path);
        EXPECT_THAT(reply.Header("Content-Security-Policy"),
                    StartsWith("default-src 'none'; script-src 'self'; "));
        EXPECT_THAT(reply.Header("Content-Security-Policy"), HasSubstr("frame-ancestors 'none'"));
        EXPECT_THAT(reply.Header("Content-Security-Policy"), Not(HasSubstr("unsafe")));
        EXPECT_EQ(reply.Header("X-Content-Type-Options"), "nosniff");
        EXPECT_EQ(reply.Header("Access-Control-Allow-Origin"), "");
    }
    EXPECT_EQ(Get("/api/session").Header("Cache-Control"), "no-store");
    const std::string version = Get("/page.js").Header("ETag");
    EXPECT_EQ(Get("/page.js", {{"If-None-Match", version}}).status, 304);
    EXPECT_EQ(Get("/page.js", {{"If-None-Match", "\"x\""}}).status, 200);
    for (const char* path :
         {"/../notices.de.txt", "/%2e%2e/notices.de.txt", "//page.js", "/texts/", "/api/", "/api"})
        EXPECT_THAT(Get(path).status, ::testing::AnyOf(401, 404)) << path;
    EXPECT_EQ(Post("/page.js").status, 405);
}

// Behaviour: Requests that are too large, and log-ins that fail too often, are refused
TEST_F(PageAccess, RequestsHaveLimits) {
    StartPage();
    EXPECT_EQ(Post("/api/login", {}, std::string(20000, 'x')).status, 413);
    EXPECT_THAT(Get("/", {{"X-Long", std::string(40000, 'x')}}).status, ::testing::AnyOf(431, 413, 400, 0));
    EXPECT_EQ(Post("/api/login", {}, "[]").status, 400);
    EXPECT_EQ(Post("/api/login", {}, std::string(10000, '[')).status, 400);
    const std::string token = Token();
    for (int i = 0; i < 10; ++i) EXPECT_EQ(LogInWith("1-x").status, 401);
    const Reply reply = LogInWith(token);
    EXPECT_EQ(reply.status, 429);
    EXPECT_EQ(reply.Header("Retry-After"), "60");
}

// Behaviour: Over the socket the web server says whose jobs a request sees and touches; one that says it
// twice, or
//   somebody else at the socket, gets nothing
TEST_F(PageAccess, AUserSeesOwnJobsAlone) {
    StartPageOnSocket();
    const std::string annas = AddJob({{"user_name", "anna"}, {"certname", "annas"}});
    const std::string berts = AddJob({{"user_name", "bert"}, {"certname", "berts"}});
    for (const std::string owner : {"anna", "bert", "root"})
        Ask("func=problems.register&name=ambrin_pause&level=1&param_name=x",
            {{"id", owner}, {"owner", owner}});
    EXPECT_EQ(Get("/api/session").status, 401);
    const Headers anna{{"X-Panel-User", "anna"}};
    const Json::Value session = Get("/api/session", anna).Json();
    EXPECT_EQ(session["user"].asString(), "anna");
    csrf_ = session["csrf"].asString();
    const Json::Value jobs = Get("/api/jobs?user=bert&user_name=bert", anna).Json()["jobs"];
    ASSERT_EQ(jobs.size(), 1U);
    EXPECT_EQ(jobs[0]["certname"].asString(), "annas");
    EXPECT_EQ(Get("/api/jobs?begin=b", anna).Json()["jobs"].size(), 0U);
    EXPECT_EQ(Get("/api/jobs/" + berts, anna).status, 404);
    EXPECT_EQ(Post("/api/jobs/" + berts + "/pause", anna).status, 404);
    EXPECT_EQ(Post("/api/jobs/" + annas + "/pause", anna).status, 200);
    const Json::Value status = Get("/api/status", anna).Json();
    EXPECT_EQ(status["jobs"]["paused"].asInt() + status["jobs"]["waiting"].asInt(), 1);
    EXPECT_FALSE(status.isMember("database"));
    const Json::Value notices = Get("/api/notices", anna).Json()["notices"];
    ASSERT_EQ(notices.size(), 1U);
    EXPECT_EQ(notices[0]["owner"].asString(), "anna");
    for (const char* path : {"/api/runs", "/api/limits", "/api/deeds"})
        EXPECT_EQ(Get(path, anna).status, 404);
    for (const int number : {1, 2, 3}) {
        const std::string path = "/api/notices/" + std::to_string(number) + "/clear";
        EXPECT_EQ(Post(path, anna).status, number == notices[0]["number"].asInt() ? 200 : 404);
    }
    EXPECT_EQ(Get("/api/session", {{"X-Panel-User", "anna\r\nX-Panel-User: bert"}}).status, 401);
    EXPECT_EQ(Get("/api/session", {{"X-Panel-User", "../anna"}}).status, 401);
    EXPECT_EQ(Post("/api/jobs/" + berts + "/pause", {{"X-Panel-User", "bert"}}).status, 403)
        << "anna's token";
    EXPECT_THAT(Zelvek({"page", "log"}).out, HasSubstr("user anna (by the web server)"));
    std::filesystem::permissions(Path("."), std::filesystem::perms(0711));
    EXPECT_EQ(InChild([&] {
                  if (::setuid(kNobody) != 0 || Get("/api/session", anna).status != 403) throw 1;
              }),
              0);
}

// Behaviour: What is done by the page is noted with who did it and what, for the administrator and in the
// service's log
TEST_F(PageAccess, WhatIsDoneIsNoted) {
    StartPage();
    LogIn("anna");
    const std::string id = AddJob({{"user_name", "anna"}, {"certname", "shop"}});
    EXPECT_EQ(Post("/api/jobs/" + id + "/pause").status, 200);
    EXPECT_EQ(Post("/api/jobs/" + id + "/renew").status, 409);
    EXPECT_EQ(Post("/api/jobs/" + id + "/resume").status, 200);
    EXPECT_EQ(Post("/api/jobs/" + id + "/retry").status, 200);
    const std::string log = Zelvek({"page", "log"}).out;
    EXPECT_THAT(log, HasSubstr("user anna (session 2)  pause job " + id + " (shop)"));
    EXPECT_THAT(log, HasSubstr("retry job " + id));
    EXPECT_THAT(log, Not(HasSubstr("renew")));
    EXPECT_THAT(service().Err(), HasSubstr("page: user anna (session 2) pause job " + id + " (shop)"));
}

// Behaviour: The reader's language is the first of the browser's that is there, by weight; English where none
// is
TEST(PageLanguage, IsTheReadersWhereItIsThere) {
    const std::set<std::string> there{"de", "en"};
    EXPECT_EQ(page::ChosenLanguage("de-AT,de;q=0.9,en;q=0.8", there), "de");
    EXPECT_EQ(page::ChosenLanguage("fr, en;q=0.7, DE;q=0.8", there), "de");
    EXPECT_EQ(page::ChosenLanguage("fr", there), "en");
    EXPECT_EQ(page::ChosenLanguage("de;q=0", there), "en");
    EXPECT_EQ(page::ChosenLanguage("", there), "en");
    EXPECT_EQ(page::ChosenLanguage(";q=,,-;;q=x", there), "en");
}

}  // namespace

}  // namespace zelvek::testing
