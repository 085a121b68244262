#include "panel.h"

#include <fcntl.h>

#include "zelvek/base/descriptor.h"
#include "zelvek/store/domains.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/restarts.h"

namespace moving_test {

namespace fs = std::filesystem;
using zelvek::Descriptor;
using zelvek::moving::Places;
using zelvek::moving::Present;
using zelvek::moving::Secret;

Panels::Panels() {
    for (const char* name : {"old", "old-certs", "fresh"}) fs::create_directory(Path(name));
    zelvek::Store store(old_.database);
    zelvek::Transaction transaction(store);
    zelvek::domains::Add(transaction, {0, "shop.example", "shop.example", "alice"});
    for (int number = 0; number < kJobs; ++number) {
        zelvek::Job job;
        job.certname = job.folder = job.domain = "waiting" + std::to_string(number) + ".example";
        job.user_name = "alice";
        zelvek::jobs::Add(transaction, job);
    }
    transaction.Commit();
}

void Panels::AddInstalled(const std::string& name, const parts::Hierarchy& pki) {
    Install(old_, name, pki);
    const auto lifetime = zelvek::install::InstalledLifetime(old_.certificates, "alice", name);
    zelvek::Store store(old_.database);
    zelvek::Transaction transaction(store);
    zelvek::Job job;
    job.certname = job.folder = job.domain = name;
    job.user_name = "alice";
    job = zelvek::jobs::Find(transaction, zelvek::jobs::Add(transaction, job));
    job.verified = true;
    zelvek::jobs::Save(transaction, job);
    zelvek::restarts::SetValidity(transaction, "alice", name,
                                  {lifetime->until.AsDateTime(), "2999-01-01 00:00:00"});
    transaction.Commit();
}

void Panels::Install(const Places& places, const std::string& name, const parts::Hierarchy& pki) {
    zelvek::install::Install(places.certificates,
                             {"alice", name, pki.leaf.Pem() + pki.intermediate.Pem(), pki.leaf.KeyPem()});
}

fs::path Panels::Backup(const std::optional<Secret>& secret) {
    const fs::path file = Path("backup" + std::to_string(++backups_));
    const Descriptor opened = zelvek::Open(file, O_WRONLY | O_CREAT | O_EXCL, 0600);
    zelvek::moving::WriteBackup(old_, secret, zelvek::moving::ToFile(opened.get()));
    return file;
}

zelvek::moving::RestoreReport Panels::Restore(const fs::path& file, const std::optional<Secret>& secret,
                                              Present present) {
    const Descriptor opened = zelvek::Open(file, O_RDONLY);
    return zelvek::moving::Restore(fresh_, opened.get(), secret, present);
}

parts::Failure Panels::Refusal(const fs::path& file, const std::optional<Secret>& secret, Present present) {
    return parts::FailureOf([&] { Restore(file, secret, present); });
}

void Panels::ExpectNothingRestored() const {
    EXPECT_TRUE(parts::Entries(Path("fresh")).empty()) << parts::Entries(Path("fresh")).front();
    EXPECT_FALSE(fs::exists(Path("fresh-certs")));
}

void Change(const fs::path& file, std::uintmax_t at) {
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(at));
    const int before = stream.get();
    stream.seekp(static_cast<std::streamoff>(at));
    stream.put(static_cast<char>(before ^ 1));
}

}  // namespace moving_test
