// A panel made of a backup.
#include "zelvek/moving/restore.h"

#include <SQLiteCpp/Database.h>
#include <gmock/gmock.h>

#include "panel.h"
#include "zelvek/store/domains.h"
#include "zelvek/store/jobs.h"

namespace moving_test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using zelvek::install::InstalledNames;
using zelvek::install::ReadInstalled;
using zelvek::moving::Present;
using zelvek::moving::RestoreReport;
using zelvek::moving::Secret;

class Restoring : public Panels {
protected:
    int Rows(const fs::path& database, const std::string& select) const {
        return SQLite::Database(database.string()).execAndGet(select).getInt();
    }

    void ExpectWhole() const {
        EXPECT_EQ(Rows(fresh_.database, "SELECT count(*) FROM job"), kJobs + 2);
        EXPECT_EQ(Rows(fresh_.database, "SELECT count(*) FROM domain"), 1);
        EXPECT_EQ(parts::Mode(fresh_.database), 0600U);
        for (const char* name : {"shop.example", "_wildcard.shop.example"}) {
            const auto restored = ReadInstalled(fresh_.certificates, {"alice", name});
            EXPECT_TRUE(restored) << name;
            EXPECT_EQ(restored, ReadInstalled(old_.certificates, {"alice", name}));
            EXPECT_EQ(parts::Mode(Path("fresh-certs/alice") / name / "privkey.pem"), 0600U);
        }
    }

    parts::Hierarchy pki_;
    parts::Hierarchy other_;
};

// Behaviours of: Moving to another machine

// Behaviour: A backup brings every job and every certificate with its key to another machine, encrypted or
// not
TEST_F(Restoring, BringsEverything) {
    AddInstalled("shop.example", pki_);
    AddInstalled("_wildcard.shop.example", other_);
    const Secret key{Secret::Kind::kKey, std::string(32, 'k')};
    const Secret passphrase{Secret::Kind::kPassphrase, "correct horse"};
    for (const std::optional<Secret>& secret : {std::optional<Secret>(), {key}, {passphrase}}) {
        const RestoreReport report = Restore(Backup(secret), secret);
        EXPECT_THAT(report.remarks, IsEmpty());
        EXPECT_EQ(report.manifest.jobs, kJobs + 2);
        EXPECT_EQ(report.installed, 2);
        EXPECT_THAT(parts::Entries(Path("fresh")), ElementsAre("zelvek.db"));
        ExpectWhole();
        fs::remove_all(Path("fresh"));
        fs::remove_all(Path("fresh-certs"));
        fs::create_directory(Path("fresh"));
    }
    EXPECT_THAT(parts::Entries(Path("old")), testing::Contains("zelvek.db"));
    EXPECT_THAT(parts::Entries(Path("old")), testing::Each(testing::Not(HasSubstr("moving"))));
}

// Behaviour: A backup that is not encrypted can be read with tar
TEST_F(Restoring, TarReadsABackup) {
    AddInstalled("shop.example", pki_);
    const fs::path file = Backup();
    fs::create_directory(Path("unpacked"));
    ASSERT_EQ(std::system(("tar -xf " + file.string() + " -C " + Path("unpacked").string()).c_str()), 0);
    EXPECT_EQ(parts::Content(Path("unpacked/certificates/alice/shop.example/privkey.pem")),
              pki_.leaf.KeyPem());
    EXPECT_EQ(Rows(Path("unpacked/zelvek.db"), "SELECT count(*) FROM job"), kJobs + 1);
    EXPECT_THAT(parts::Content(Path("unpacked/manifest.json")), HasSubstr("\"jobs\":4"));
}

// Behaviour: A certificate that is there already stays, an older one is replaced by the backup's, a newer one
// is
//   kept, and the last two are named
TEST_F(Restoring, CertificatesThatAreThereAreCompared) {
    AddInstalled("same.example", pki_);
    AddInstalled("older.example", parts::Hierarchy());
    AddInstalled("newer.example", parts::Hierarchy());
    const fs::path file = Backup();
    Install(fresh_, "same.example", pki_);
    parts::Hierarchy older;
    parts::Hierarchy newer;
    const auto date = [](parts::Hierarchy& pki, long seconds) {
        X509_gmtime_adj(X509_getm_notBefore(pki.leaf.certificate.get()), seconds);
        X509_sign(pki.leaf.certificate.get(), pki.intermediate.key.get(), EVP_sha256());
    };
    date(older, -86400);
    date(newer, -60);
    Install(fresh_, "older.example", older);
    Install(fresh_, "newer.example", newer);
    const RestoreReport report = Restore(file);
    EXPECT_EQ(report.same, 1);
    EXPECT_EQ(report.installed, 1);
    EXPECT_THAT(report.remarks,
                ElementsAre("kept: alice/newer.example, which is newer than the backup's",
                            "replaced: alice/older.example, which was older than the backup's"));
    EXPECT_EQ(ReadInstalled(fresh_.certificates, {"alice", "newer.example"})->key, newer.leaf.KeyPem());
    EXPECT_EQ(ReadInstalled(fresh_.certificates, {"alice", "older.example"}),
              ReadInstalled(old_.certificates, {"alice", "older.example"}));
}

// Behaviour: A certificate that is newer than the database knows, since it was installed while the backup was
//   made, has its end and its renewal read anew
TEST_F(Restoring, ANewerCertificateIsPlannedAnew) {
    AddInstalled("shop.example", pki_);
    parts::Hierarchy renewed;
    X509_gmtime_adj(X509_getm_notAfter(renewed.leaf.certificate.get()), 86400L * 100);
    X509_sign(renewed.leaf.certificate.get(), renewed.intermediate.key.get(), EVP_sha256());
    Install(old_, "shop.example", renewed);
    Restore(Backup());
    EXPECT_EQ(ReadInstalled(fresh_.certificates, {"alice", "shop.example"})->key, renewed.leaf.KeyPem());
    EXPECT_EQ(Rows(fresh_.database, "SELECT count(*) FROM job WHERE verified = 1 AND expires = ''"), 1);
}

// Behaviour: A certificate that the database calls installed and that is nowhere is named, and so is one that
//   cannot be read
TEST_F(Restoring, WhatIsMissingIsNamed) {
    AddInstalled("gone.example", pki_);
    AddInstalled("broken.example", other_);
    fs::remove(Path("old-certs/alice/gone.example"));
    parts::Put(Path("old-certs/alice/broken.example/privkey.pem"), "no key");
    const zelvek::moving::BackupReport report = zelvek::moving::WriteBackup(old_, std::nullopt, [](auto) {});
    EXPECT_THAT(
        report.remarks,
        ElementsAre("left out: alice/broken.example, whose certificate and key cannot be read or do not fit",
                    "not there: the certificate alice/gone.example of job 4, which the database calls "
                    "installed",
                    "not there: the certificate alice/broken.example of job 5, which the database calls "
                    "installed"));
    EXPECT_THAT(
        Restore(Backup()).remarks,
        testing::Contains("not there: the certificate alice/gone.example of job 4; \"zelvek job renew 4\" "
                          "asks for it"));
}

// Behaviour: A panel with jobs or domains is not replaced unless that is asked for, and then it is moved
// aside
//   with everything that belongs to it
TEST_F(Restoring, APanelThatIsThereIsNotReplaced) {
    const fs::path file = Backup();
    {
        zelvek::Store store(fresh_.database);
        zelvek::Transaction transaction(store);
        zelvek::domains::Add(transaction, {0, "theirs.example", "theirs.example", "bob"});
        transaction.Commit();
    }
    const parts::Failure failure = Refusal(file);
    EXPECT_EQ(failure.type, "exists");
    EXPECT_THAT(failure.text, HasSubstr("has 0 jobs and 1 domains; --force moves it aside"));
    EXPECT_EQ(Rows(fresh_.database, "SELECT count(*) FROM domain WHERE name = 'theirs.example'"), 1);

    const RestoreReport report = Restore(file, std::nullopt, Present::kMovedAside);
    ASSERT_EQ(report.remarks.size(), 1U);
    const fs::path aside = report.remarks.front().substr(report.remarks.front().find('/'));
    EXPECT_EQ(Rows(aside / "zelvek.db", "SELECT count(*) FROM domain WHERE name = 'theirs.example'"), 1);
    EXPECT_EQ(Rows(fresh_.database, "SELECT count(*) FROM job"), kJobs);
}

// Behaviour: A database with which a service was started and nothing else was done is moved aside without
// asking
TEST_F(Restoring, AnUnusedDatabaseIsNoPanel) {
    const fs::path file = Backup();
    { const zelvek::Store store(fresh_.database); }
    Restore(file);
    EXPECT_EQ(Rows(fresh_.database, "SELECT count(*) FROM job"), kJobs);
}

// Behaviour: A log that an earlier database has left is not taken for the restored one's
TEST_F(Restoring, AForeignLogIsMovedAside) {
    const fs::path file = Backup();
    parts::Put(Path("fresh/zelvek.db-wal"), "of another database");
    const RestoreReport report = Restore(file);
    EXPECT_EQ(report.remarks.size(), 1U);
    EXPECT_FALSE(fs::exists(Path("fresh/zelvek.db-wal")));
    EXPECT_EQ(Rows(fresh_.database, "SELECT count(*) FROM job"), kJobs);
}

// Behaviour: A database that a service uses is not replaced, whatever is asked for
TEST_F(Restoring, ADatabaseInUseStays) {
    const fs::path file = Backup();
    const zelvek::Store service(fresh_.database);
    EXPECT_EQ(Refusal(file).type, "busy");
    EXPECT_EQ(Refusal(file, std::nullopt, Present::kMovedAside).type, "busy");
}

}  // namespace
}  // namespace moving_test
