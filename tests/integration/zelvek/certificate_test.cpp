// Requests with their keys, and installations, over the socket.
#include <SQLiteCpp/Database.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <map>
#include <thread>

#include "service.h"
#include "vek/date.h"

namespace zelvek::testing {

namespace {

class Certificate : public ServiceTest {
protected:
    static vek_client::Result Make(const std::string& names, const std::string& certname,
                                   const std::string& further = "key_type=ec") {
        const auto client = vek_client::Local("zelvek", "test");
        client.Query("func=sslcert.csr.edit&domain=?&su=?&certname_ascii=" + certname + "&" + further, names,
                     "anna");
        return client.Query("func=sslcert.csr.edit&out=xml&elid=?", certname);
    }

    /// What `openssl` prints of it.
    std::string Openssl(const std::string& command, const std::string& input) const {
        std::ofstream(Path("input")) << input;
        const std::string line = "openssl " + command + " <" + Path("input").string() + " >" +
                                 Path("output").string() + " 2>" + Path("complaints").string();
        EXPECT_EQ(std::system(line.c_str()), 0) << ReadFile(Path("complaints"));
        return ReadFile(Path("output"));
    }

    /// A certificate of this request, signed by an authority of the test's own.
    std::string Sign(const std::string& request, const std::string& further = "") {
        Openssl("req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=root -keyout " +
                    Path("ca.key").string() + " -out " + Path("ca.pem").string(),
                "");
        return Openssl("x509 -req -days 1 -CA " + Path("ca.pem").string() + " -CAkey " +
                           Path("ca.key").string() + " " + further,
                       request);
    }

    std::string Install(const std::string& elid, const std::string& user, const std::string& chain,
                        const std::string& certificate, const std::string& key) {
        return ErrorOf(
            "func=sslcert.hardreplace&sok=ok",
            {{"cacrt", chain}, {"elid", elid}, {"user", user}, {"crt", certificate}, {"key", key}});
    }

    std::filesystem::path Installed(const std::string& certname) const {
        return Path("certs") / "anna" / certname;
    }
};

// Behaviours of: Requests and installations (sslcert.csr.edit, sslcert.csr.delete, sslcert.hardreplace)

// Behaviour: A request holds every name once in its ASCII form and is signed by a key of its own
TEST_F(Certificate, ARequestHoldsItsNamesAndBelongsToItsKey) {
    Start();
    const auto csr = Make("shop.example www.shop.example bücher.example", "shop.example");
    const std::string text = Openssl("req -text -noout", csr.value("csr_req"));
    for (const char* name : {"DNS:shop.example", "DNS:www.shop.example", "DNS:xn--bcher-kva.example"}) {
        EXPECT_NE(text.find(name), std::string::npos) << name;
    }
    EXPECT_EQ(Openssl("pkey -pubout", csr.value("csr_pk")),
              Openssl("req -pubkey -noout", csr.value("csr_req")));
}

// Behaviour: A request is kept under the ASCII form of its certificate's name until it is deleted; a leftover
//   is replaced, a missing one deleted without an error
TEST_F(Certificate, ARequestIsKeptUntilItIsDeleted) {
    Start();
    const std::string request = Make("shop.example", "shop.example").value("csr_req");
    EXPECT_EQ(Ask("func=sslcert.csr.edit&out=xml&elid=shop.example").value("csr_req"), request);
    EXPECT_NE(Make("shop.example", "shop.example").value("csr_req"), request) << "a leftover is replaced";
    Ask("func=sslcert.csr.delete&elid=shop.example");
    Ask("func=sslcert.csr.delete&elid=shop.example");
    EXPECT_EQ(ErrorOf("func=sslcert.csr.edit&out=xml&elid=shop.example"), "missed");
}

// Behaviour: Two runs for one name never get each other's key
TEST_F(Certificate, TwoRunsForOneNameNeverGetEachOthersKey) {
    Start();
    const std::string mine = Make("shop.example", "x").value("csr_pk");
    EXPECT_EQ(InChild([&] {
                  if (Make("other.example", "x").value("csr_pk") == mine)
                      throw std::runtime_error("one key for both");
                  if (ErrorOf("func=sslcert.csr.delete&elid=x") != "")
                      throw std::runtime_error("not deleted");
              }),
              0);
    EXPECT_EQ(Ask("func=sslcert.csr.edit&out=xml&elid=x").value("csr_pk"), mine);
}

// Behaviour: What is no name is refused ...
TEST_F(Certificate, WrongValuesForARequestAreRefused) {
    Start();
    const std::string query = "func=sslcert.csr.edit&";
    EXPECT_EQ(ErrorOf(query + "domain=shop.example&su=anna&"), "value") << "no certificate's name";
    EXPECT_EQ(ErrorOf(query + "domain=&su=anna&certname_ascii=x"), "value");
    EXPECT_EQ(ErrorOf(query + "domain=a..b&su=anna&certname_ascii=x"), "value");
    EXPECT_EQ(ErrorOf(query + "domain=shop.example&su=..&certname_ascii=x"), "value");
    EXPECT_EQ(ErrorOf(query + "domain=shop.example&su=anna&certname_ascii=..%2fx"), "value");
    EXPECT_EQ(ErrorOf(query + "domain=shop.example&su=anna&certname_ascii=x&key_type=none"), "value");
    EXPECT_EQ(ErrorOf("func=sslcert.csr.edit&out=xml&elid=x"), "missed");
}

// Behaviour: The private key is readable by its owner ...
TEST_F(Certificate, IsInstalledUnderTheAsciiFormOfItsName) {
    Start({{"--reload-command", "echo $VEK_CERT_NAME >>" + Path("reloads").string()}});
    const auto csr = Make("bücher.example", "xn--bcher-kva.example");
    const std::string certificate = Sign(csr.value("csr_req"));
    EXPECT_EQ(
        Install("anna%#%bücher.example", "anna", ReadFile(Path("ca.pem")), certificate, csr.value("csr_pk")),
        "");
    const auto folder = Installed("xn--bcher-kva.example");
    EXPECT_EQ(ReadFile(folder / "fullchain.pem"), certificate + ReadFile(Path("ca.pem")));
    EXPECT_EQ(ReadFile(folder / "privkey.pem"), csr.value("csr_pk"));
    EXPECT_EQ(std::filesystem::status(folder / "privkey.pem").permissions(), std::filesystem::perms{0600});
    EXPECT_EQ(ReadFile(Path("reloads")), "xn--bcher-kva.example\n");
}

// Behaviour: Key, certificate and chain that do not belong together are refused as "badkey" or "badchain",
//   and nothing changes
TEST_F(Certificate, WhatDoesNotBelongTogetherIsRefused) {
    Start();
    const auto csr = Make("shop.example", "shop.example");
    const std::string certificate = Sign(csr.value("csr_req"));
    const std::string root = ReadFile(Path("ca.pem"));
    const std::string other = Make("blog.example", "blog.example").value("csr_pk");
    EXPECT_EQ(Install("anna%#%shop.example", "anna", root, certificate, other), "badkey");
    EXPECT_EQ(Install("anna%#%shop.example", "anna", "no certificate", certificate, csr.value("csr_pk")),
              "badchain");
    EXPECT_EQ(Install("bob%#%shop.example", "anna", root, certificate, csr.value("csr_pk")), "value");
    EXPECT_EQ(Install("shop.example", "anna", root, certificate, csr.value("csr_pk")), "value");
    EXPECT_EQ(Install("anna%#%../x", "anna", root, certificate, csr.value("csr_pk")), "value");
    EXPECT_FALSE(std::filesystem::exists(Installed("shop.example")));
}

// Behaviour: A reload that fails is no failed installation: it is tried again until it succeeds, and the
//   administrator has a notification meanwhile
TEST_F(Certificate, AFailedReloadIsToldAndTriedAgain) {
    const std::string healthy = Path("healthy");
    Start({{"--reload-command", "echo ill; echo x >>" + Path("tries").string() + "; test -e " + healthy},
           {"--reload-pause", "0.01"}});
    const auto csr = Make("shop.example", "shop.example");
    const std::string certificate = Sign(csr.value("csr_req"));
    EXPECT_EQ(Install("anna%#%shop.example", "anna", "", certificate, csr.value("csr_pk")), "");
    EXPECT_TRUE(std::filesystem::exists(Installed("shop.example")));
    EXPECT_TRUE(Eventually([&] { return ReadFile(Path("tries")).size() > 4; })) << "it is tried again";

    const auto problems = Ask("func=zelvek.problem.list");
    ASSERT_EQ(problems.xml().GetNodes("/doc/elem").size(), 1u) << "told once";
    const auto problem = problems.xml().GetNode("/doc/elem");
    EXPECT_EQ(problem.Value("name"), "web_server_reload");
    EXPECT_EQ(problem.Value("owner"), "root");
    std::map<std::string, std::string> parameters;
    for (const auto& parameter : problem.Children("parameter"))
        parameters[parameter.Value("name")] = parameter.Value("value");
    EXPECT_EQ(parameters["certname"], "shop.example");
    EXPECT_EQ(parameters["user"], "anna");
    EXPECT_NE(parameters["reason"].find("ill"), std::string::npos);
    EXPECT_EQ(parameters["since"].size(), std::string("2026-01-01 00:00:00").size());

    const std::string job = AddJob();
    const Ended shown = Zelvek({"job", "show", job});
    EXPECT_NE(shown.out.find("has an older certificate since " + parameters["since"]), std::string::npos)
        << shown.out;
    EXPECT_NE(Zelvek({"job", "show", job, "--json"}).out.find("\"failures\""), std::string::npos);

    Kill();
    Start({{"--reload-command", "test -e " + healthy}, {"--reload-pause", "0.01"}});
    std::ofstream{healthy};
    EXPECT_TRUE(
        Eventually([&] { return Ask("func=zelvek.problem.list").xml().GetNodes("/doc/elem").empty(); }));
    EXPECT_EQ(Zelvek({"job", "show", job}).out.find("older certificate"), std::string::npos);
}

// Behaviour: Whatever the owner of a certificate's folder puts in a key's place, reloads are tried again and
// the
//   service ends
TEST_F(Certificate, AnExchangedKeyHoldsNoReloadUp) {
    Start(
        {{"--reload-command", "echo x >>" + Path("tries").string() + "; false"}, {"--reload-pause", "0.01"}});
    const auto csr = Make("shop.example", "shop.example");
    EXPECT_EQ(Install("anna%#%shop.example", "anna", "", Sign(csr.value("csr_req")), csr.value("csr_pk")),
              "");
    std::filesystem::remove(Installed("shop.example") / "privkey.pem");
    ASSERT_EQ(::mkfifo((Installed("shop.example") / "privkey.pem").c_str(), 0666), 0);
    const auto before = ReadFile(Path("tries")).size();
    EXPECT_TRUE(Eventually([&] { return ReadFile(Path("tries")).size() > before + 4; }));
    Stop();
}

// Behaviour: A service that is to end while reloads are tried again waits for the one under way alone
TEST_F(Certificate, AnEndBeginsNoFurtherReload) {
    Start();
    Stop();
    SQLite::Database(Database().string(), SQLite::OPEN_READWRITE)
        .exec(
            "INSERT INTO reload (user_name, certname, directory, since, failures, next, reason) VALUES"
            " ('anna', 'a', '/a', '2026-01-01 00:00:00', 1, '2026-01-01 00:00:00', ''),"
            " ('anna', 'b', '/b', '2026-01-01 00:00:00', 1, '2026-01-01 00:00:00', '')");
    const std::string tries = Path("tries");
    Start({{"--reload-command", "echo x >>" + tries + "; until test -e " + Path("go").string() +
                                    "; do sleep 0.01; done; false"}});
    EXPECT_TRUE(Eventually([&] { return ReadFile(tries) == "x\n"; }));
    service().Signal(SIGTERM);
    EXPECT_TRUE(Eventually([&] { return service().Err().find("ending on signal") != std::string::npos; }));
    std::ofstream{Path("go")};
    EXPECT_EQ(service().Wait().status, 0);
    EXPECT_EQ(ReadFile(tries), "x\n");
}

// Behaviour: An installation that fails leaves no reload to be repeated
TEST_F(Certificate, AFailedInstallationIsNotReloaded) {
    Start({{"--reload-command", "touch " + Path("reloaded").string()}});
    const auto csr = Make("shop.example", "shop.example");
    std::filesystem::create_symlink(Path("elsewhere"), Path("certs") / "anna");
    EXPECT_EQ(Install("anna%#%shop.example", "anna", "", Sign(csr.value("csr_req")), csr.value("csr_pk")),
              "io");
    EXPECT_EQ(SQLite::Database(Database().string()).execAndGet("SELECT count(*) FROM reload").getInt(), 0);
}

// Behaviour: A certificate that lacks names of the job that it was ordered for is not installed
TEST_F(Certificate, OneWithoutAllNamesOfItsJobIsRefused) {
    Start();
    const std::string job = AddJob({{"domain", "shop.example"}, {"aliases", "Bücher.example"}});
    ReadJob(job);
    const auto csr = Make("shop.example bücher.example", "shop.example");
    // The authority drops the names: openssl takes none over from a request.
    const std::string without = Sign(csr.value("csr_req"));
    EXPECT_EQ(Install("anna%#%shop.example", "anna", "", without, csr.value("csr_pk")), "badnames");
    EXPECT_FALSE(std::filesystem::exists(Installed("shop.example")));
    const std::string with = Sign(csr.value("csr_req"), "-copy_extensions copyall");
    EXPECT_EQ(Install("anna%#%shop.example", "anna", "", with, csr.value("csr_pk")), "");
    const std::string expires = Ask("func=zelvek.job.show&elid=" + job).value("expires");
    const std::string renew = Ask("func=zelvek.job.show&elid=" + job).value("renew");
    const std::string tomorrow = vek_date::DateTime().AddDays(1).AsDateTime();
    EXPECT_LE(expires, tomorrow);
    EXPECT_GT(expires, vek_date::DateTime().AddSeconds(86000).AsDateTime());
    EXPECT_LT(renew, expires);
    EXPECT_GT(renew, vek_date::DateTime().AsDateTime());
}

// Behaviour: The end of a certificate that an older version installed is read from its file
TEST_F(Certificate, OfAnOlderVersionHasItsEndRead) {
    Start();
    const std::string job = AddJob({{"domain", "shop.example"}});
    const auto csr = Make("shop.example", "shop.example");
    const std::string certificate = Sign(csr.value("csr_req"));
    EXPECT_EQ(Install("anna%#%shop.example", "anna", "", certificate, csr.value("csr_pk")), "");
    const std::string expires = Ask("func=zelvek.job.show&elid=" + job).value("expires");
    SQLite::Database(Database().string(), SQLite::OPEN_READWRITE, 10'000)
        .exec("UPDATE job SET verified = 1, expires = '', renew = ''");
    EXPECT_TRUE(
        Eventually([&] { return Ask("func=zelvek.job.show&elid=" + job).value("expires") == expires; }));
    std::filesystem::remove_all(Path("certs"));
    SQLite::Database(Database().string(), SQLite::OPEN_READWRITE, 10'000)
        .exec("UPDATE job SET expires = '', renew = ''");
    EXPECT_TRUE(Eventually([&] { return Ask("func=zelvek.job.show&elid=" + job).value("renew") != ""; }));
    EXPECT_GT(Ask("func=zelvek.job.show&elid=" + job).value("renew"), vek_date::DateTime().AsDateTime());
}

// Behaviour: A slow reload command keeps nobody else waiting, and a stop lets it finish
TEST_F(Certificate, ASlowReloadCommandKeepsNobodyElseWaiting) {
    const std::string go = Path("go");
    Start({{"--reload-command", "while [ ! -e " + go + " ]; do sleep 0.02; done"}});
    const auto csr = Make("shop.example", "shop.example");
    const std::string certificate = Sign(csr.value("csr_req"));
    std::string result;
    std::atomic<bool> finished{false};
    std::thread installer([&] {
        result = Install("anna%#%shop.example", "anna", "", certificate, csr.value("csr_pk"));
        finished = true;
    });
    EXPECT_TRUE(Eventually([&] { return std::filesystem::exists(Installed("shop.example")); }));
    EXPECT_EQ(ErrorOf("func=zelvek.job.list"), "");
    EXPECT_FALSE(finished);
    std::ofstream{go};
    installer.join();
    EXPECT_EQ(result, "");
}

// Behaviour: A slow reload command keeps nobody else waiting ...
TEST_F(Certificate, AStopLetsAnInstallationUnderWayFinish) {
    const std::string go = Path("go");
    Start({{"--reload-command", "while [ ! -e " + go + " ]; do sleep 0.02; done"}});
    const auto csr = Make("shop.example", "shop.example");
    const std::string certificate = Sign(csr.value("csr_req"));
    std::string result;
    std::atomic<bool> finished{false};
    std::thread installer([&] {
        result = Install("anna%#%shop.example", "anna", "", certificate, csr.value("csr_pk"));
        finished = true;
    });
    EXPECT_TRUE(Eventually([&] { return std::filesystem::exists(Installed("shop.example")); }));
    service().Signal(SIGTERM);
    EXPECT_TRUE(Eventually([&] { return !std::filesystem::exists(Socket()); }));
    std::this_thread::sleep_for(std::chrono::seconds(2));  // longer than a query may take to arrive by now
    EXPECT_FALSE(finished);
    std::ofstream{go};
    installer.join();
    EXPECT_EQ(result, "");
    EXPECT_EQ(service().Wait().status, 0);
}

}  // namespace

}  // namespace zelvek::testing
