// Certificates of other clients, taken over by the service.
#include <SQLiteCpp/Database.h>
#include <json/json.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <memory>

#include "service.h"
#include "vek/date.h"
#include "zelvek/certificates/placeholder.h"

namespace zelvek::testing {

namespace {

namespace fs = std::filesystem;

class Import : public ServiceTest {
protected:
    /// Makes NAME.pem and NAME.key, self-signed, for these names and 60 days.
    void MakeCertificate(const std::string& name, const std::string& names) const {
        std::string list;
        for (const char c : names) list += c == ' ' ? std::string(",DNS:") : std::string(1, c);
        const std::string line =
            "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-384 -nodes -subj /CN=test"
            " -addext subjectAltName=DNS:" +
            list + " -days 60 -keyout " + Path(name + ".key").string() + " -out " +
            Path(name + ".pem").string() + " 2>" + Path("complaints").string();
        ASSERT_EQ(std::system(line.c_str()), 0) << ReadFile(Path("complaints"));
    }

    Ended TakeOver(const std::string& name, std::vector<std::string> further = {}) {
        std::vector<std::string> words{"import", "certificate",       "--user", "anna",
                                       "--cert", Path(name + ".pem"), "--key",  Path(name + ".key"),
                                       "--json"};
        words.insert(words.end(), further.begin(), further.end());
        return Zelvek(words);
    }

    static Json::Value Read(const std::string& text) {
        Json::Value value;
        std::string errors;
        const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, &errors)) << text;
        return value;
    }

    Json::Value Job(const Json::Value& id) {
        return Read(Zelvek({"job", "show", std::to_string(id.asInt()), "--json"}).out);
    }

    std::string ErrorIn(const Ended& ended) const {
        EXPECT_EQ(ended.status, 1) << ended.out;
        return Read(ended.err)["error"]["code"].asString();
    }

    /// A folder as other clients keep it: `live/NAME` has links into `archive/NAME`.
    void AddToFolder(const std::string& name, const std::string& certificate,
                     const std::string& authenticator = "webroot") const {
        const fs::path folder = Path("letsencrypt");
        fs::create_directories(folder / "live" / name);
        fs::create_directories(folder / "archive" / name);
        fs::create_directories(folder / "renewal");
        std::ofstream(folder / "live" / "README") << "These are links.\n";
        const auto put = [&](const std::string& file, const fs::path& content) {
            fs::copy_file(content, folder / "archive" / name / (file + "1.pem"));
            fs::create_symlink("../../archive/" + name + "/" + file + "1.pem",
                               folder / "live" / name / (file + ".pem"));
        };
        put("fullchain", Path(certificate + ".pem"));
        put("privkey", Path(certificate + ".key"));
        std::ofstream(folder / "renewal" / (name + ".conf"))
            << "version = 2.1.0\n[renewalparams]\nauthenticator = " << authenticator << "\n[[webroot_map]]\n"
            << name << " = /var/www\n";
    }
};

// Behaviours of: Requests and installations (sslcert.csr.edit, sslcert.csr.delete, sslcert.hardreplace)

// Behaviour: A certificate of another client becomes a verified job with all its names, installed as it is,
// and
//   is renewed no earlier than one of the service's own
TEST_F(Import, ACertificateBecomesAJobThatHasIt) {
    Start({{"--scheduler", "on"}, {"--reload-command", "touch " + Path("reloaded").string()}});
    MakeCertificate("shop", "shop.example www.shop.example");
    const Ended ended = TakeOver("shop");
    ASSERT_EQ(ended.status, 0) << ended.err;
    const Json::Value taken = Read(ended.out);
    EXPECT_EQ(taken["state"], "taken");
    EXPECT_EQ(taken["domains"].size(), 1U) << "www.shop.example lies below";
    const Json::Value job = Job(taken["job"]);
    EXPECT_EQ(job["state"], "verified");
    EXPECT_EQ(job["aliases"].size(), 2U);
    const std::string renew = job["renew"].asString();
    EXPECT_GT(renew, vek_date::DateTime().AddDays(30).AsDateTime().substr(0, 10));
    EXPECT_LT(renew, vek_date::DateTime().AddDays(42).AsDateTime().substr(0, 10));
    const fs::path place = Path("certs") / "anna" / "shop.example";
    EXPECT_EQ(ReadFile(place / "fullchain.pem"), ReadFile(Path("shop.pem")));
    EXPECT_EQ(ReadFile(place / "privkey.pem"), ReadFile(Path("shop.key")));
    struct stat key {};
    ASSERT_EQ(::stat((place / "privkey.pem").c_str(), &key), 0);
    EXPECT_EQ(key.st_mode & 0777U, 0600U);
    EXPECT_FALSE(fs::exists(Path("reloaded"))) << "no web server can have known the place";
    EXPECT_NE(Zelvek({"certificate", "list"}).out.find("shop.example www.shop.example"), std::string::npos);
    const std::string request =
        SQLite::Database(Database().string()).execAndGet("SELECT csr_internal_request FROM job").getString();
    EXPECT_NE(request.find("key_curve=P-384"), std::string::npos) << request;
    Stop();
    EXPECT_EQ(service().Err().find("PRIVATE KEY"), std::string::npos);
}

// Behaviour: A certificate that was taken over before is told so and changes nothing; a dry run changes
// nothing
//   either
TEST_F(Import, TwiceOrDryChangesNothing) {
    Start();
    MakeCertificate("shop", "shop.example");
    EXPECT_EQ(Read(TakeOver("shop", {"--dry-run"}).out)["state"], "possible");
    EXPECT_FALSE(fs::exists(Path("certs") / "anna"));
    EXPECT_EQ(Read(Zelvek({"domain", "list", "--json"}).out).size(), 0U);
    const Json::Value first = Read(TakeOver("shop").out);
    const fs::path target = fs::read_symlink(Path("certs") / "anna" / "shop.example");
    const Json::Value second = Read(TakeOver("shop").out);
    EXPECT_EQ(second["state"], "there");
    EXPECT_EQ(second["job"], first["job"]);
    EXPECT_EQ(fs::read_symlink(Path("certs") / "anna" / "shop.example"), target);
    MakeCertificate("other", "shop.example");
    EXPECT_EQ(ErrorIn(TakeOver("other")), "exists") << "the job has another one";
}

// Behaviour: A certificate that cannot be taken over is refused with the reason, and nothing of it stays: a
//   key of another one, names of another user, an end that has passed, a wildcard without a name server
TEST_F(Import, WhatIsInTheWayIsTold) {
    Start({{"--dns-records-file", ""}});
    MakeCertificate("shop", "shop.example");
    MakeCertificate("other", "other.example");
    MakeCertificate("wild", "*.wild.example");
    EXPECT_EQ(ErrorIn(Zelvek({"import", "certificate", "--user", "anna", "--json", "--cert", Path("shop.pem"),
                              "--key", Path("other.key")})),
              "badkey");
    Zelvek({"domain", "add", "shop.example", "--user", "berta"});
    EXPECT_EQ(ErrorIn(TakeOver("shop")), "missed");
    EXPECT_EQ(ErrorIn(TakeOver("wild")), "value");
    EXPECT_NE(TakeOver("wild").err.find("name server"), std::string::npos);
    EXPECT_EQ(ErrorIn(TakeOver("missing")), "value");
    std::ofstream(Path("shop.key")) << "no key";
    EXPECT_NE(TakeOver("shop").err.find("no private key"), std::string::npos);
    const Placeholder placeholder = MakePlaceholder("other.example");
    std::ofstream(Path("other.pem")) << placeholder.certificate;
    std::ofstream(Path("other.key")) << placeholder.key;
    EXPECT_NE(TakeOver("other").err.find("placeholder"), std::string::npos);
    EXPECT_EQ(Read(Zelvek({"job", "list", "--json"}).out).size(), 0U);
    EXPECT_FALSE(fs::exists(Path("certs") / "anna"));
}

// Behaviour: A certificate that cannot be taken over is refused ...
TEST_F(Import, AnEndedOneIsRefused) {
    Start();
    MakeCertificate("shop", "shop.example");
    const std::string line = "cd " + Path("").string() +
                             " && openssl x509 -in shop.pem -signkey shop.key -days -1" +
                             " -out ended.pem 2>complaints && mv ended.pem shop.pem";
    ASSERT_EQ(std::system(line.c_str()), 0) << ReadFile(Path("complaints"));
    const Ended ended = TakeOver("shop");
    EXPECT_EQ(ErrorIn(ended), "value");
    EXPECT_NE(ended.err.find("has ended"), std::string::npos) << ended.err;
}

// Behaviour: All certificates of another client's folder are taken over, each for its user; what is in the
// way
//   of one is told and holds up no other
TEST_F(Import, AFolderIsTakenOverWhereItCanBe) {
    Start();
    MakeCertificate("shop", "www.shop.example shop.example");
    MakeCertificate("blog", "blog.example");
    MakeCertificate("wild", "wild.example *.wild.example");
    AddToFolder("shop.example", "shop");
    AddToFolder("shop.example-0001", "shop");
    AddToFolder("blog.example", "blog");
    AddToFolder("wild.example", "wild", "dns-rfc2136");
    AddToFolder("broken.example", "blog");
    fs::remove(Path("letsencrypt") / "live" / "broken.example" / "privkey.pem");
    const Ended ended = Zelvek({"import", "letsencrypt", Path("letsencrypt"), "--user-of",
                                "shop.example=anna", "--user-of", "wild.example=carl", "--json"});
    EXPECT_EQ(ended.status, 1) << "not all";
    const Json::Value list = Read(ended.out);
    ASSERT_EQ(list.size(), 5U);
    EXPECT_NE(list[0]["error"]["message"].asString().find("--user-of blog.example=USER"), std::string::npos);
    EXPECT_NE(list[1]["error"]["message"].asString().find("privkey.pem"), std::string::npos);
    EXPECT_EQ(list[2]["state"], "taken");
    EXPECT_EQ(list[2]["names"][0], "shop.example") << "the certificate's own name is the main one";
    EXPECT_EQ(list[3]["place"], (Path("certs") / "anna" / "shop.example-0001").string());
    EXPECT_EQ(list[4]["check"], "dns");
    EXPECT_EQ(list[4]["user"], "carl");
    EXPECT_EQ(Read(Zelvek({"job", "list", "--json"}).out).size(), 3U);
    EXPECT_EQ(ErrorIn(Zelvek({"import", "letsencrypt", Path("nothing"), "--json"})), "io");
}

// Behaviour: A placeholder is put where no certificate is, is none itself, is called what it is when its job
// is removed,
//   and gives way to the first certificate
TEST_F(Import, APlaceholderStandsInForACertificate) {
    Start({{"--reload-command", "touch " + Path("reloaded").string()}});
    const auto put = [] {
        return Ask("func=zelvek.certificate.placeholder&user_name=anna&certname=shop.example").value("made");
    };
    EXPECT_EQ(put(), "on");
    const fs::path place = Path("certs") / "anna" / "shop.example";
    const std::string first = ReadFile(place / "cert.pem");
    EXPECT_TRUE(IsPlaceholder(first));
    EXPECT_EQ(put(), "off");
    EXPECT_EQ(ReadFile(place / "cert.pem"), first);
    EXPECT_EQ(Zelvek({"certificate", "list", "--json"}).out, "[]\n");
    // A job that has lost its certificate does not take the placeholder's end for its own.
    const std::string job = AddJob();
    SQLite::Database(Database().string(), SQLite::OPEN_READWRITE, 10'000)
        .exec("UPDATE job SET verified = 1, expires = '', renew = ''");
    EXPECT_TRUE(Eventually([&] { return Ask("func=zelvek.job.show&elid=" + job).value("renew") != ""; }));
    EXPECT_LT(Ask("func=zelvek.job.show&elid=" + job).value("expires"),
              vek_date::DateTime().AddDays(1).AsDateTime());
    EXPECT_EQ(Zelvek({"job", "remove", job}).out,
              "job " + job + " removed; the placeholder that only lets the web server start stays in " +
                  place.string() + "\n");
    const Json::Value removed = Read(Zelvek({"job", "remove", AddJob(), "--certificate", "--json"}).out);
    EXPECT_TRUE(removed["placeholder"].asBool());
    EXPECT_TRUE(removed["certificate_removed"].asBool());
    EXPECT_FALSE(fs::exists(place));
    EXPECT_EQ(put(), "on");
    MakeCertificate("shop", "shop.example");
    EXPECT_FALSE(IsPlaceholder(ReadFile(Path("shop.pem"))));
    EXPECT_EQ(TakeOver("shop").status, 0);
    EXPECT_EQ(ReadFile(place / "cert.pem"), ReadFile(Path("shop.pem")));
    EXPECT_TRUE(fs::exists(Path("reloaded"))) << "a web server may have started with the placeholder";
    EXPECT_EQ(put(), "off");
    EXPECT_EQ(ReadFile(place / "cert.pem"), ReadFile(Path("shop.pem")));
}

}  // namespace

}  // namespace zelvek::testing
