// Several authorities, each with a plug-in: which job has which, and what they do not share.
#include <gmock/gmock.h>
#include <json/json.h>

#include <fstream>
#include <memory>

#include "service.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

class SeveralAuthorities : public ServiceTest {
protected:
    SeveralAuthorities() {
        fs::create_directory(Path("bin"));
        fs::create_directory(Path("authorities"));
        fs::create_symlink(TEST_PLUGIN, Path("bin") / "ambrin");
        Install("ambrin-staging");
    }

    /// A plug-in that notes its name, and then goes the job's way.
    void Install(const std::string& name) const {
        const fs::path plugin = Path("bin") / name;
        std::ofstream(plugin) << "#!/bin/sh\necho \"" << name << " $1\" >> \"$VEK_LOG_DIR/plugins\"\nexec "
                              << TEST_PLUGIN << " \"$1\"\n";
        fs::permissions(plugin, fs::perms::owner_all);
        std::ofstream(Path("authorities") / (name + ".conf"))
            << "directory=https://" << name << ".example/dir\nstyle=rfc8555\n";
    }

    void StartWith(std::map<std::string, std::string> options = {}) {
        options.insert({{"--plugin", Path("bin/ambrin")}, {"--authorities-dir", Path("authorities")}});
        Start(options);
    }

    Json::Value Json(std::vector<std::string> words) {
        words.emplace_back("--json");
        const Ended ended = Zelvek(words);
        EXPECT_EQ(ended.status, 0) << ended.err;
        Json::Value json;
        const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        EXPECT_TRUE(reader->parse(ended.out.data(), ended.out.data() + ended.out.size(), &json, nullptr));
        return json;
    }

    static std::string AddOf(const std::string& authority, const std::string& certname) {
        return AddJob({{"authority", authority}, {"certname", certname}});
    }

    /// A run that has registered this account.
    static void Register(const std::string& id, const std::string& kid) {
        ReadJob(id);
        Write(id, {{"kid", kid},
                   {"acmekey", "key of " + kid},
                   {"verified", "on"},
                   {"update_default_account", "on"}});
    }

    static std::string DefaultOf(const std::string& id) {
        return Ask("func=ambrin.data.edit&out=xml", {{"elid", id}}).value("default_kid");
    }
};

// Behaviours of: Start and store

// Behaviour: Authorities are listed with their jobs, and one of them is what new jobs get where nobody
//   says which
TEST_F(SeveralAuthorities, AreListedAndOneIsTheDefault) {
    StartWith();
    EXPECT_EQ(Zelvek({"job", "add", "a.example", "--user", "anna", "--foreign-names"}).out, "job 1 added\n");
    EXPECT_EQ(Zelvek({"authority", "default", "ambrin-staging"}).out,
              "new jobs get the authority ambrin-staging\n");
    EXPECT_EQ(Json({"job", "add", "b.example", "--user", "anna", "--foreign-names"})["authority"].asString(),
              "ambrin-staging");
    Zelvek({"job", "add", "c.example", "--user", "anna", "--foreign-names", "--authority", "ambrin"});
    const Json::Value listed = Json({"authority", "list"});
    ASSERT_EQ(listed.size(), 2U);
    EXPECT_EQ(listed[0]["name"].asString() + " " + listed[1]["name"].asString(), "ambrin ambrin-staging");
    EXPECT_EQ(listed[0]["jobs"].asInt() * 10 + listed[1]["jobs"].asInt(), 21);
    EXPECT_FALSE(listed[0]["default"].asBool());
    EXPECT_TRUE(listed[1]["default"].asBool());
    EXPECT_EQ(listed[1]["directory"].asString(), "https://ambrin-staging.example/dir");
    EXPECT_EQ(listed[1]["style"].asString(), "rfc8555");
    EXPECT_THAT(Zelvek({"authority", "list"}).out,
                HasSubstr("ambrin-staging  rfc8555  yes      1     https://"));

    EXPECT_THAT(Zelvek({"job", "list"}).out, HasSubstr("  AUTHORITY  "));
    EXPECT_THAT(Zelvek({"job", "show", "2"}).out, HasSubstr("authority    ambrin-staging\n"));
    EXPECT_THAT(Zelvek({"job", "show", "1"}).out, Not(HasSubstr("authority  ")));
    const Json::Value status = Json({"status"});
    EXPECT_EQ(status["authority"].asString(), "https://ambrin-staging.example/dir");
    EXPECT_EQ(status["authorities"].size(), 2U);
    EXPECT_THAT(Zelvek({"status"}).out, HasSubstr("\nAuthorities in use\nNAME "));
    Zelvek({"job", "edit", "2", "--authority", "ambrin"});
    EXPECT_THAT(Zelvek({"job", "list"}).out, Not(HasSubstr("AUTHORITY")));
}

// Behaviour: An authority whose plug-in is not there is refused, whatever its name; jobs that have one
//   which has gone keep it, and it is listed
TEST_F(SeveralAuthorities, WhosePluginIsNotThereAreRefused) {
    StartWith();
    const std::string id = AddOf("ambrin-staging", "a");
    for (const std::string name :
         {"ambrin-other", "..", "../bin/ambrin-staging", "/bin/sh", "AMBRIN", "a b", "\x1b[31m"}) {
        EXPECT_EQ(ErrorOf("func=zelvek.job.add&domain=b.example&user_name=anna&foreign_names=on",
                          {{"authority", name}}),
                  "missed");
        EXPECT_EQ(ErrorOf("func=zelvek.job.edit&elid=" + id, {{"authority", name}}), "missed");
        EXPECT_EQ(ErrorOf("func=zelvek.authority.default", {{"name", name}}), "missed");
    }
    EXPECT_EQ(ErrorOf("func=zelvek.authority.default"), "missed");
    EXPECT_EQ(Zelvek({"authority", "default", "ambrin-other"}).err,
              "zelvek: there is no authority \"ambrin-other\": \"zelvek authority list\" shows those whose "
              "plug-ins are"
              " there\n");
    fs::remove(Path("bin") / "ambrin-staging");
    EXPECT_EQ(ErrorOf("func=zelvek.job.edit&res_name=b&elid=" + id), "");
    EXPECT_EQ(Json({"job", "show", id})["authority"].asString(), "ambrin-staging");
    EXPECT_EQ(Json({"authority", "list"})[1]["directory"].asString(), "");
    EXPECT_THAT(Zelvek({"authority", "list"}).out, HasSubstr("its plug-in is gone"));
}

// Behaviour: Jobs of two authorities share no account, and one that is given to the other begins anew
//   without its own
TEST_F(SeveralAuthorities, ShareNoAccount) {
    StartWith();
    const std::string here = AddOf("ambrin", "a");
    const std::string there = AddOf("ambrin-staging", "b");
    Register(there, "https://staging.example/1");
    EXPECT_EQ(DefaultOf(here), "");
    Register(here, "https://ca.example/1");
    EXPECT_EQ(DefaultOf(AddOf("ambrin-staging", "c")), "https://staging.example/1");
    EXPECT_EQ(Ask("func=zelvek.account.show").value("kid"), "https://ca.example/1");
    EXPECT_EQ(Zelvek({"account", "show", "--authority", "ambrin-staging"}).out,
              "account https://staging.example/1, key kept\n");
    EXPECT_EQ(Ask("func=zelvek.problem.list").xml().GetNodes("/doc/elem").size(), 0U)
        << "no account has replaced another";

    EXPECT_THAT(Zelvek({"job", "edit", there, "--authority", "ambrin"}).out, HasSubstr("it begins anew"));
    const auto record = Ask("func=ambrin.data.edit&out=xml", {{"elid", there}});
    EXPECT_EQ(record.value("verified"), "off");
    EXPECT_EQ(record.value("kid") + record.value("acmekey"), "");
    EXPECT_EQ(record.value("default_kid"), "https://ca.example/1");
}

// Behaviours of: Scheduling

// Behaviour: Each job is run by the plug-in of its authority
TEST_F(SeveralAuthorities, RunTheirOwnPlugins) {
    StartWith({{"--scheduler", "on"}});
    const std::string there = AddOf("ambrin-staging", "installs-a");
    const std::string here = AddOf("ambrin", "installs-b");
    for (const std::string& id : {there, here}) {
        EXPECT_TRUE(
            Eventually([&] { return Ask("func=zelvek.job.show&elid=" + id).value("verified") == "on"; }));
    }
    EXPECT_EQ(ReadFile(Path("log") / "plugins"), "ambrin-staging " + there + "\n");
}

}  // namespace

}  // namespace zelvek::testing
