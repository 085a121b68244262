// The command line: tables for people, JSON for programs, exit statuses for scripts.
#include "command_line.h"

#include <fcntl.h>
#include <unistd.h>

#include "zelvek/base/request_keys.h"
#include "zelvek/base/version.h"

namespace zelvek::testing {

namespace {

// Behaviours of: Command line

// Behaviour: The command line tells its version, and of each command what --help tells, without a service
TEST_F(CommandLine, TellsItsVersionAndItsCommands) {
    EXPECT_EQ(Zelvek({"--version"}).out, std::string("zelvek ") + Version() + "\n");
    EXPECT_NE(Zelvek({"help"}).out.find("Subcommands:"), std::string::npos);
    EXPECT_EQ(Zelvek({"help", "job", "add"}).out, Zelvek({"job", "add", "--help"}).out);
    EXPECT_NE(Zelvek({"help", "job", "add"}).out.find("--alias"), std::string::npos);
    EXPECT_EQ(Zelvek({"help", "job", "ad"}).status, 2);
}

// Behaviour: With --json an error is one line of JSON, with the word that programs go by
TEST_F(CommandLine, ErrorsAreJsonWhereJsonIsAskedFor) {
    Start();
    const Ended missed = Zelvek({"job", "show", "7", "--json"});
    EXPECT_EQ(missed.status, 1);
    EXPECT_EQ(missed.out, "");
    EXPECT_EQ(Parse(missed.err)["error"]["code"].asString(), "missed");
    EXPECT_EQ(Parse(missed.err)["error"]["message"].asString(), "there is no job 7");
    const Ended usage = Zelvek({"job", "show", "--json", "seven\x1b[2J"});
    EXPECT_EQ(usage.status, 2);
    EXPECT_EQ(Parse(usage.err)["error"]["code"].asString(), "usage");
    EXPECT_EQ(usage.err.find('\x1b'), std::string::npos);
}

// Behaviour: Domains are added and listed
TEST_F(CommandLine, DomainsAreAddedAndListed) {
    Start();
    EXPECT_EQ(Zelvek({"domain", "add", "bücher.example", "--user", "anna"}).out,
              "domain bücher.example added\n");
    EXPECT_EQ(Json({"domain", "add", "shop.example", "--user", "bob"})["user"].asString(), "bob");
    EXPECT_EQ(Zelvek({"domain", "list"}).out,
              "NAME            USER  ZONE\n"
              "bücher.example  anna  yes\n"
              "shop.example    bob   yes\n");
    const Json::Value list = Json({"domain", "list", "--user", "anna"});
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list[0]["name"].asString(), "bücher.example");
    EXPECT_EQ(list[0]["user"].asString(), "anna");
    EXPECT_TRUE(list[0]["zone"].asBool());
    EXPECT_EQ(Zelvek({"domain", "add", "shop.example", "--user", "eve"}).err,
              "zelvek: the domain \"shop.example\" is there already\n");
}

// Behaviour: Jobs are added, shown, listed and removed, as tables and as JSON
TEST_F(CommandLine, JobsAreAddedShownListedAndRemoved) {
    Start();
    Zelvek({"domain", "add", "shop.example", "--user", "anna"});
    Zelvek({"domain", "add", "blog.example", "--user", "bob"});
    EXPECT_EQ(Zelvek({"job", "add", "shop.example", "--user", "anna"}).out, "job 1 added\n");
    const Json::Value added = Json({"job",
                                    "add",
                                    "blog.example",
                                    "--user",
                                    "bob",
                                    "--alias",
                                    "a.blog.example",
                                    "--alias",
                                    "*.blog.example",
                                    "--check",
                                    "dns",
                                    "--certname",
                                    "Blog",
                                    "--res-name",
                                    "team",
                                    "--csr",
                                    "key_type=ec",
                                    "--csr",
                                    "organization=A=B & C",
                                    "--skip-account-check",
                                    "--max-account-checks",
                                    "5"});
    EXPECT_EQ(added["id"].asInt(), 2);
    const Json::Value shown = Json({"job", "show", "2"});
    ASSERT_EQ(shown["aliases"].size(), 3U);
    EXPECT_EQ(shown["aliases"][2].asString(), "*.blog.example");
    EXPECT_EQ(shown["challenges"], Json::Value(Json::arrayValue));
    EXPECT_EQ(shown["state"].asString(), "waiting");
    EXPECT_EQ(shown["next_step"].asString(), "runs now");
    EXPECT_TRUE(shown["last_error"].isNull());
    EXPECT_TRUE(shown["expires"].isNull());
    EXPECT_EQ(shown["certname"].asString(), "Blog");
    EXPECT_EQ(shown["check_type"].asString(), "dns");
    EXPECT_EQ(shown["attempt_count"].asInt(), 0);
    EXPECT_TRUE(shown["verified"].isBool() && !shown["verified"].asBool());
    EXPECT_TRUE(shown["events"].isArray());
    for (const char* key : {"domain", "user_name", "failed", "next_attempt", "time_started", "kid",
                            "finalize_check", "challenges", "processing"}) {
        EXPECT_TRUE(shown.isMember(key)) << key;
    }
    const auto record = Ask("func=ambrin.data.edit&elid=2&out=xml");
    EXPECT_EQ(record.value("csr_internal_request"),
              "certname_ascii=Blog&key_type=ec&organization=A%3DB%20%26%20C");
    EXPECT_EQ(record.value("skip_account_check"), "on");
    EXPECT_EQ(record.value("max_account_check_attempts"), "5");
    EXPECT_EQ(record.value("res_name"), "team");
    Write("2", {{"log", "2026-01-01 00:00:00,processing,challenge_start,"}});

    EXPECT_EQ(Json({"job", "list"}).size(), 2U);
    EXPECT_EQ(Json({"job", "show", "2"})["events"][0]["event"].asString(), "challenge_start");
    EXPECT_EQ(Json({"job", "list", "--limit", "1"})[0]["id"].asInt(), 1);
    EXPECT_EQ(Json({"job", "list", "--limit", "1"}).size(), 1U);
    EXPECT_EQ(Json({"job", "list", "--after", "1"})[0]["id"].asInt(), 2);
    EXPECT_EQ(Json({"job", "list", "--after", "2"}).size(), 0U);
    EXPECT_EQ(Json({"job", "list", "--user", "bob"})[0]["id"].asInt(), 2);
    EXPECT_EQ(Json({"job", "list", "--state", "waiting"}).size(), 2U);
    EXPECT_EQ(Json({"job", "list", "--state", "verified"}).size(), 0U);
    EXPECT_EQ(Zelvek({"job", "remove", "1"}).out, "job 1 removed; no certificate of it was installed\n");
    const Ended missed = Zelvek({"job", "show", "1", "--json"});
    EXPECT_EQ(missed.status, 1);
    EXPECT_EQ(missed.out, "");
    EXPECT_EQ(missed.err, "{\"error\":{\"code\":\"missed\",\"message\":\"there is no job 1\"}}\n");
}

// Behaviour: A job's names lie in its user's own domains ...
TEST_F(CommandLine, AJobForAnothersNameIsRefusedUnlessItIsToBe) {
    Start();
    Zelvek({"domain", "add", "shop.example", "--user", "bob"});
    const std::vector<std::string> words{"job", "add", "shop.example", "--user", "anna"};
    const Ended refused = Zelvek(words);
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err,
              "zelvek: \"shop.example\" is in another user's domain, shop.example;"
              " \"zelvek domain add\" gives user anna a domain of their own\n");
    std::vector<std::string> all_the_same = words;
    all_the_same.emplace_back("--foreign-names");
    EXPECT_EQ(Zelvek(all_the_same).out, "job 1 added\n");
}

// Behaviour: A list that is longer than a page is shown whole, or just the part that is asked for
TEST_F(CommandLine, ListsThatAreLongerThanAPageAreShownWhole) {
    Start();
    constexpr int kMoreThanAPage = 501;
    for (int i = 1; i <= kMoreThanAPage; ++i) {
        Ask("func=problems.register&sok=ok&name=n&level=error&owner=anna&id=" + std::to_string(i));
    }
    const Json::Value list = Json({"problem", "list"});
    ASSERT_EQ(list.size(), static_cast<unsigned>(kMoreThanAPage));
    for (int i = 1; i <= kMoreThanAPage; ++i) {
        EXPECT_EQ(list[i - 1]["id"].asString(), std::to_string(i));
    }
    const std::string number = list[498]["number"].asString();
    EXPECT_EQ(Json({"problem", "list", "--after", number}).size(), 2U);
    EXPECT_EQ(Json({"problem", "list", "--limit", "2", "--after", "7"})[1]["id"].asString(), "9");
}

// Behaviour: The account is shown without its key, and no function of the command line gives one
TEST_F(CommandLine, TheAccountIsShownWithoutItsKey) {
    Start();
    EXPECT_EQ(Zelvek({"account", "show"}).out, "no default account\n");
    EXPECT_EQ(Zelvek({"account", "show", "--json"}).out, "{\"key\":false,\"kid\":\"\"}\n");
    const std::string id = AddJob();
    ReadJob(id);
    Write(id, {{"kid", "https://ca.example/1"}, {"acmekey", "SECRET"}, {"update_default_account", "on"}});
    EXPECT_EQ(Zelvek({"account", "show"}).out, "account https://ca.example/1, key kept\n");
    EXPECT_EQ(Zelvek({"account", "show", "--json"}).out, "{\"key\":true,\"kid\":\"https://ca.example/1\"}\n");
}

// Behaviour: No text from outside controls the terminal
// Behaviour: A notification is kept with level, owner ...
TEST_F(CommandLine, NoTextFromOutsideControlsTheTerminal) {
    Start();
    Ask("func=problems.register&sok=ok&name=n&id=1&level=error&owner=anna", {{"param_error",
                                                                              "one\ntwo\x7f"
                                                                              "three"},
                                                                             {"param_name", "shop.example"}});
    const std::string table = Zelvek({"problem", "list"}).out;
    EXPECT_NE(table.find("error=one two three, name=shop.example\n"), std::string::npos) << table;
    const Json::Value list = Json({"problem", "list"});
    EXPECT_EQ(list[0]["parameters"]["error"].asString(),
              "one\ntwo\x7f"
              "three");
    // A terminal takes commands by characters beyond ASCII, too; a reversed text reads as another one.
    const std::string steering = "\u009b2J \u202eelpmaxe\u202c \u2028 \u00fc";
    Ask("func=problems.register&sok=ok&name=n&id=2&level=error&owner=anna", {{"param_error", steering}});
    EXPECT_NE(Zelvek({"problem", "list"}).out.find("error= 2J  elpmaxe    \u00fc\n"), std::string::npos);
    const std::string json = Zelvek({"problem", "list", "--json"}).out;
    EXPECT_NE(json.find("\\u007fthree"), std::string::npos) << json;
    EXPECT_NE(json.find("\\u009b2J \\u202eelpmaxe\\u202c \\u2028 \u00fc"), std::string::npos) << json;
    EXPECT_EQ(Parse(json)[1]["parameters"]["error"].asString(), steering);
    EXPECT_EQ(list[0]["owner"].asString(), "anna");
    EXPECT_EQ(list[0]["time"].asString().size(), 20U);
}

// Behaviour: A wrong command line has status 2 and says why
TEST_F(CommandLine, UsageErrorsHaveTheirOwnStatus) {
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {},
             {"nonsense"},
             {"job"},
             {"job", "add"},
             {"job", "add", "shop.example"},
             {"job", "show"},
             {"job", "show", "one"},
             {"job", "list", "--nonsense"},
             {"job", "list", "--limit", "0"},
             {"job", "list", "--state", "perhaps"},
             {"job", "list", "--expires-within", "-1"},
             {"job", "edit"},
             {"job", "edit", "1", "--name", ""},
             {"job", "pause"},
             {"problem", "list", "--after", "-1"},
             {"problem", "list", "--limit", "few"},
             {"problem", "list", "--state", "perhaps"},
             {"problem", "seen", "few"},
             {"domain", "add", "shop.example"},
             {"job", "add", "shop.example", "--user", "anna", "--check", "mail"},
             {"job", "add", "shop.example", "--user", "anna", "--csr", "key_type"},
             {"serve", "--scheduler", "perhaps"},
             {"serve", "--dns-port", "0"}}) {
        const Ended ended = Zelvek(words);
        EXPECT_EQ(ended.status, 2) << ended.err;
        EXPECT_EQ(ended.out, "");
        EXPECT_FALSE(ended.err.empty());
    }
    const Ended help = Zelvek({"job", "add", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("--alias"), std::string::npos);
    for (const RequestKey& one : kRequestKeys) {
        EXPECT_NE(help.out.find(std::string(one.key) + ": " + one.values + "\n"), std::string::npos)
            << help.out;
    }
}

// Behaviour: A command whose output cannot be written fails and says so
TEST_F(CommandLine, OutputThatCannotBeWrittenIsAFailure) {
    Start();
    Zelvek({"domain", "add", "shop.example", "--user", "anna"});
    for (const std::vector<const char*>& words :
         std::vector<std::vector<const char*>>{{"domain", "list"},
                                               {"domain", "list", "--json"},
                                               {"account", "show"},
                                               {"job", "add", "--help"}}) {
        std::vector<const char*> all{"zelvek"};
        all.insert(all.end(), words.begin(), words.end());
        all.push_back(nullptr);
        const std::string errors = Path("errors");
        EXPECT_EQ(InChild([&] {
                      ::dup2(::open("/dev/full", O_WRONLY), STDOUT_FILENO);
                      ::dup2(::open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
                      ::execv(ZELVEK_BINARY, const_cast<char* const*>(all.data()));
                  }),
                  1)
            << words[1];
        EXPECT_EQ(ReadFile(errors), "zelvek: the output cannot be written\n") << words[1];
    }
}

// Behaviour: A service that does not run is named
TEST_F(CommandLine, AServiceThatDoesNotRunIsNamed) {
    const Ended ended = Zelvek({"job", "list"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "zelvek: cannot reach the service: client: connect: " + Socket().string() +
                             ": No such file or directory\n");
}

}  // namespace

}  // namespace zelvek::testing
