// What the page's interface tells, and the words that it is told in.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <regex>
#include <set>

#include "visit.h"
#include "zelvek/base/error.h"
#include "zelvek/notices/texts.h"
#include "zelvek/page/api.h"
#include "zelvek/page/settings.h"

namespace zelvek::testing {

namespace {

using ::testing::HasSubstr;

class PageInterface : public PageTest {};

Json::Value JsonOf(const std::string& text) { return Reply{200, "", text}.Json(); }

std::set<std::string> PlacesIn(const std::string& text) {
    static const std::regex form(R"(\{[a-z]+\})");
    std::set<std::string> places;
    for (std::sregex_iterator each(text.begin(), text.end(), form), end; each != end; ++each)
        places.insert(each->str());
    return places;
}

// Behaviours of: The page

// Behaviour: The description of the page's interface has each of its routes, and no other
TEST(PageDescription, HasEachRoute) {
    const std::string text = ReadFile(DOCS "/page-api.yaml");
    std::set<std::string> described;
    std::string path;
    static const std::regex form(R"(^  (/api/[^:]*):$|^    (get|post|put|delete|patch):$)");
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::smatch found;
        if (!std::regex_match(line, found, form)) continue;
        if (found[1].matched) path = found[1];
        if (found[2].matched) described.insert((found[2] == "get" ? "GET " : "POST ") + path);
    }
    std::set<std::string> routes;
    for (const auto& [method, route] : page::Api::Routes()) routes.insert(method + " " + route);
    EXPECT_EQ(described, routes);
}

// Behaviour: Every route of the page's interface asks who is there, and answers somebody who is
TEST_F(PageInterface, EveryRouteAsksWhoIsThere) {
    StartPage();
    LogIn();
    AddJob();
    for (const auto& [method, route] : page::Api::Routes()) {
        if (route == "/api/login" || route == "/api/logout") continue;
        const std::string path = std::regex_replace(route, std::regex(R"(\{id\})"), "1");
        EXPECT_EQ(Send(method, path, {{"Cookie", ""}}, "{}").status, 401) << path;
        if (method == "GET" && path != "/api/changes") {
            EXPECT_EQ(Get(path).status, 200) << path;
        }
    }
    EXPECT_EQ(Get("/api/jobs/99").status, 404);
    EXPECT_EQ(Get("/api/jobs/0").status, 404);
    EXPECT_EQ(Get("/api/jobs?limit=0").status, 400);
    EXPECT_EQ(Get("/api/jobs?after=x").status, 400);
    EXPECT_EQ(Get("/api/jobs?state=x").status, 400);
    EXPECT_EQ(Get("/api/nothing").status, 404);
}

// Behaviour: Jobs come with the records of the command line, by the beginning of their names and page by page
TEST_F(PageInterface, JobsComeAsTheCommandLineHasThem) {
    StartPage();
    LogIn();
    for (const std::string name : {"b", "a", "c"}) AddJob({{"certname", name + ".example"}});
    const Json::Value listed = JsonOf(Zelvek({"job", "list", "--json"}).out);
    EXPECT_EQ(Get("/api/jobs").Json()["jobs"], listed);
    EXPECT_EQ(Get("/api/jobs/1").Json(), JsonOf(Zelvek({"job", "show", "1", "--json"}).out));
    const Json::Value first = Get("/api/jobs?order=name&limit=2").Json();
    ASSERT_EQ(first["jobs"].size(), 2U);
    EXPECT_EQ(first["jobs"][0]["certname"].asString() + first["jobs"][1]["certname"].asString(),
              "a.exampleb.example");
    const Json::Value second = Get("/api/jobs?order=name&limit=2&after=" + first["next"].asString()).Json();
    ASSERT_EQ(second["jobs"].size(), 1U);
    EXPECT_TRUE(second["next"].isNull());
    EXPECT_EQ(Get("/api/jobs?begin=c").Json()["jobs"].size(), 1U);
}

// Behaviour: What needs a person comes with the sentence that `zelvek job show` has, and notifications with
// their words
//   in the reader's language
TEST_F(PageInterface, WhatNeedsAPersonComesInWords) {
    StartPage();
    LogIn();
    const std::string id = AddJob();
    EXPECT_EQ(Get("/api/attention").Json()["jobs"].size(), 0U);
    ReadJob(id);
    Write(id, {{"log", "2031-02-03 11:20:14,failed,http_query_error,<b>no</b> route"}});
    const Json::Value jobs = Get("/api/attention").Json()["jobs"];
    ASSERT_EQ(jobs.size(), 1U);
    EXPECT_EQ(jobs[0]["sentence"], JsonOf(Zelvek({"job", "show", id, "--json"}).out)["sentence"]);
    EXPECT_EQ(Get("/api/status").Json()["jobs"]["failing"].asInt(), 1);
    Ask("func=problems.register&id=1&name=certificate_ended&level=3&owner=root&param_name=shop.example");
    const Json::Value notice = Get("/api/notices", {{"Accept-Language", "de"}}).Json()["notices"][0];
    EXPECT_EQ(notice["subject"].asString(),
              "Das Zertifikat shop.example ist abgelaufen und wurde nicht erneuert");
    EXPECT_THAT(Get("/api/notices").Json()["notices"][0]["subject"].asString(), HasSubstr("has ended"));
    EXPECT_EQ(Get("/api/session", {{"Accept-Language", "de"}}).Json()["language"].asString(), "de");
}

// Behaviour: An open page is told of changes, of nothing while nothing changes, and no more once its session
// ends
TEST_F(PageInterface, AnOpenPageIsToldOfChanges) {
    StartPage({{"--sweep-interval", "0.2"}});
    LogIn();
    const int stream = Connect();
    const std::string request =
        "GET /api/changes HTTP/1.1\r\nHost: " + host_ + "\r\nCookie: " + cookie_ + "\r\n\r\n";
    ::send(stream, request.data(), request.size(), MSG_NOSIGNAL);
    std::string told;
    const auto read = [&] {
        char some[4096];
        const ssize_t size = ::recv(stream, some, sizeof some, MSG_DONTWAIT);
        if (size > 0) told.append(some, static_cast<std::size_t>(size));
        return size;
    };
    EXPECT_TRUE(Eventually([&] { return read(), told.find("data: ") != std::string::npos; }));
    EXPECT_THAT(told, HasSubstr("text/event-stream"));
    ::usleep(700'000);
    while (read() > 0) continue;
    told.clear();
    ::usleep(1'500'000);
    read();
    EXPECT_EQ(told, "") << "nothing has changed, though the sweep went by";
    AddJob();
    EXPECT_TRUE(Eventually([&] { return read(), told.find("data: ") != std::string::npos; }));
    Zelvek({"page", "sessions", "--end-all"});
    EXPECT_TRUE(Eventually([&] { return read() == 0; })) << "the stream ends";
    ::close(stream);
    LogIn();
    const int open = Connect();
    const std::string again =
        "GET /api/changes HTTP/1.1\r\nHost: " + host_ + "\r\nCookie: " + cookie_ + "\r\n\r\n";
    ::send(open, again.data(), again.size(), MSG_NOSIGNAL);
    ::usleep(300'000);
    Stop();  // in time, though a page is open
    ::close(open);
}

// Behaviour: A translation of the page has all of its words, with the same places for values, and the
// translated notices
//   are all there
TEST(PageTexts, AreWhole) {
    const Json::Value english = JsonOf(ReadFile(PACKAGING "/page/texts/en.json"));
    const Json::Value german = JsonOf(ReadFile(PACKAGING "/page/texts/de.json"));
    for (const std::string& key : english.getMemberNames()) {
        ASSERT_TRUE(german.isMember(key)) << key;
        EXPECT_EQ(PlacesIn(english[key].asString()), PlacesIn(german[key].asString())) << key;
    }
    const auto built_in = notices::Texts().All();
    const auto translated = notices::Texts(PACKAGING "/notices.de.txt").All();
    for (const auto& [name, text] : built_in) EXPECT_NE(translated.at(name), text) << name;
}

// Behaviour: The page is served to this machine alone, and who may say whose jobs are seen stands behind a
// socket
TEST(PageSettings, AreChecked) {
    const auto refused = [](const page::Settings& settings) {
        try {
            page::CheckSettings(settings);
            return false;
        } catch (const Error& error) {
            return error.code() == Code::kValue;
        }
    };
    EXPECT_FALSE(refused({}));
    EXPECT_FALSE(refused({.listen = "127.0.0.1:8443"}));
    EXPECT_FALSE(refused({.listen = "/run/p", .url = "https://panel.example/c/", .user_header = "X-User"}));
    EXPECT_TRUE(refused({.listen = ":8443"}));
    EXPECT_TRUE(refused({.listen = "192.0.2.1:8443"}));
    EXPECT_TRUE(refused({.listen = "/run/p"}));
    EXPECT_TRUE(refused({.listen = "127.0.0.1:8443", .user_header = "X-User"}));
    EXPECT_TRUE(refused({.listen = "/run/p", .url = "https://p/", .user_header = "X: y"}));
    EXPECT_TRUE(refused({.listen = "/run/p", .url = "https://p/", .peer = "no such user"}));
    for (const char* url :
         {"panel.example", "ftp://p/", "https://", "https://a@p/", "https://p/;x", "https://p/\n"})
        EXPECT_TRUE(refused({.listen = "/run/p", .url = url})) << url;
    const page::Address address = page::AddressOf({.listen = "/run/p", .url = "https://panel.example:8/c"});
    EXPECT_EQ(address.host + " " + address.path, "panel.example:8 /c/");
    EXPECT_TRUE(address.tls);
}

}  // namespace

}  // namespace zelvek::testing
