// What an administrator sees of installed certificates at the command line.
#include <cstdlib>

#include "job_commands.h"

namespace zelvek::testing {

namespace {

class CertificateCommands : public JobCommands {
protected:
    /// Installs a self-signed certificate for a new job of anna's.
    void AddInstalled(const std::string& name, const std::string& key, const std::string& days) {
        const std::string id = AddJob({{"domain", name}});
        const std::string command = "openssl req -x509 -nodes -days " + days + " -newkey " + key +
                                    " -subj /CN=" + name + " -addext subjectAltName=DNS:" + name +
                                    ",DNS:www." + name + " -keyout " + Path("key").string() + " -out " +
                                    Path("cert").string() + " 2>" + Path("complaints").string();
        EXPECT_EQ(std::system(command.c_str()), 0) << ReadFile(Path("complaints"));
        ReadJob(id);
        Ask("func=sslcert.hardreplace&sok=ok", {{"cacrt", ""},
                                                {"elid", "anna%#%" + name},
                                                {"user", "anna"},
                                                {"crt", ReadFile(Path("cert"))},
                                                {"key", ReadFile(Path("key"))}});
        Write(id, {{"verified", "on"}});
    }

    std::string Place(const std::string& name) const { return (Path("certs") / "anna" / name).string(); }
};

// Behaviours of: Command line

// Behaviour: Installed certificates are listed by their end, with names, issuer, key, place, and whether they
//   are served
TEST_F(CertificateCommands, InstalledCertificatesAreListed) {
    Start();
    AddInstalled("late.example", "rsa:2048", "90");
    AddInstalled("early.example", "ec -pkeyopt ec_paramgen_curve:P-256", "30");
    AddInstalled("gone.example", "rsa:2048", "60");
    AddJob({{"domain", "none.example"}});
    std::filesystem::remove(Place("gone.example"));
    Change(
        "INSERT INTO served (user_name, folder, state, time, detail) VALUES"
        " ('anna', 'early.example', 'served', '2026-01-01 00:00:00', ''),"
        " ('anna', 'late.example', 'older', '2026-01-01 00:00:00', 'serial 1')");
    const Json::Value list = Json({"certificate", "list"});
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[0]["certname"].asString(), "early.example");
    EXPECT_EQ(list[0]["names"][1].asString(), "www.early.example");
    EXPECT_EQ(list[0]["issuer"].asString(), "CN=early.example");
    EXPECT_EQ(list[0]["key_kind"].asString(), "ec");
    EXPECT_EQ(list[0]["key_size"].asInt(), 256);
    EXPECT_EQ(list[0]["path"].asString(), Place("early.example"));
    EXPECT_EQ(list[0]["served"].asString(), "yes");
    const std::string expires = Ask("func=zelvek.job.show&elid=2").value("expires");
    EXPECT_EQ(list[0]["expires"].asString(), expires.substr(0, 10) + "T" + expires.substr(11) + "Z");
    EXPECT_FALSE(list[1]["readable"].asBool());
    EXPECT_EQ(list[1]["served"].asString(), "unknown");
    EXPECT_EQ(list[2]["key_kind"].asString(), "rsa");
    EXPECT_EQ(list[2]["key_size"].asInt(), 2048);
    EXPECT_EQ(list[2]["served"].asString(), "no");
    EXPECT_EQ(list[2]["served_detail"].asString(), "serial 1");
    EXPECT_EQ(Json({"certificate", "list", "--limit", "1", "--after", "2"})[0]["job"].asInt(), 3);
    EXPECT_EQ(Json({"certificate", "list", "--user", "bob"}).size(), 0U);
    const std::string table = Zelvek({"certificate", "list"}).out;
    EXPECT_NE(table.find("  ec 256    yes      CN=early.example  early.example www.early.example in " +
                         Place("early.example") + "\n"),
              std::string::npos)
        << table;
    EXPECT_NE(table.find("no readable certificate in " + Place("gone.example") + "\n"), std::string::npos);
    for (const char* wrong : {"x", "x/", "/", "x/y"})
        EXPECT_EQ(ErrorOf("func=zelvek.certificate.list", {{"after", wrong}}), "value") << wrong;
    EXPECT_EQ(ErrorOf("func=zelvek.certificate.list&limit=501"), "value");
}

// Behaviour: A certificate that cannot be installed, of a job that an older version took, hides no other one
TEST_F(CertificateCommands, OneThatCannotBeInstalledHidesNoOther) {
    Start();
    AddInstalled("a.example", "ec -pkeyopt ec_paramgen_curve:P-256", "30");
    const std::vector<std::string> names{std::string(300, 'y'), "a/b", "xn--\u00e9.example"};
    for (const std::string& name : names) {
        const std::string id = AddJob({{"certname", "older"}});
        Change("UPDATE job SET verified = 1, expires = '2026-01-01 00:00:00', folder = '', certname = '" +
               name + "' WHERE id = " + id);
        EXPECT_EQ(Zelvek({"job", "show", id}).status, 0) << name;
    }
    const Json::Value list = Json({"certificate", "list"});
    ASSERT_EQ(list.size(), 4U);
    EXPECT_EQ(list[0]["certname"].asString(), names[0]);
    EXPECT_FALSE(list[0]["readable"].asBool());
    EXPECT_EQ(list[3]["certname"].asString(), "a.example");
    EXPECT_TRUE(list[3]["readable"].asBool());
}

// Behaviour: A reload that failed is no trouble any more when its certificate is removed, or when there is no
//   reload command any more
TEST_F(CertificateCommands, AReloadThatNobodyTriesAgainIsNoTrouble) {
    Start({{"--reload-command", "false"}});
    for (const char* name : {"a.example", "b.example"})
        AddInstalled(name, "ec -pkeyopt ec_paramgen_curve:P-256", "30");
    EXPECT_EQ(Json({"problem", "list"}).size(), 2U);
    Zelvek({"job", "remove", "1", "--certificate"});
    const Json::Value left = Json({"problem", "list"});
    ASSERT_EQ(left.size(), 1U);
    EXPECT_EQ(left[0]["parameters"]["certname"].asString(), "b.example");
    Stop();
    Change("UPDATE reload SET next = '2026-01-01 00:00:00'");
    Start();
    EXPECT_TRUE(Eventually([&] { return Json({"problem", "list"}).empty(); }));
}

// Behaviour: A removed job's certificate stays and is named, unless it is to go, too
TEST_F(CertificateCommands, ARemovedJobsCertificateStaysUnlessItIsToGo) {
    Start();
    for (const char* name : {"a.example", "b.example", "c.example"})
        AddInstalled(name, "ec -pkeyopt ec_paramgen_curve:P-256", "30");
    EXPECT_EQ(Zelvek({"job", "remove", "1"}).out,
              "job 1 removed; its certificate stays in " + Place("a.example") + "\n");
    EXPECT_TRUE(std::filesystem::exists(Path("certs") / "anna" / "a.example" / "privkey.pem"));
    EXPECT_EQ(Zelvek({"job", "remove", "2", "--certificate"}).out,
              "job 2 removed with its certificate: the web server's configuration must not name " +
                  Place("b.example") + " any more, then have it reloaded\n");
    EXPECT_FALSE(std::filesystem::is_symlink(Place("b.example")));
    std::filesystem::remove(Place("c.example"));
    std::filesystem::create_directory(Place("c.example"));
    const std::string refused = ErrorOfCommand({"job", "remove", "3", "--certificate"});
    EXPECT_EQ(refused.find("zelvek: job 3 is removed, but its certificate is not: "), 0U) << refused;
    EXPECT_TRUE(std::filesystem::exists(Place("c.example")));
    AddJob({{"domain", "d.example"}});
    EXPECT_EQ(Zelvek({"job", "remove", "4", "--certificate"}).out,
              "job 4 removed; no certificate of it was installed\n");
}

}  // namespace

}  // namespace zelvek::testing
