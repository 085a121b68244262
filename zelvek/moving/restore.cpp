#include "zelvek/moving/restore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "vek/date.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"
#include "zelvek/base/folder.h"
#include "zelvek/certificates/chain.h"
#include "zelvek/moving/staged_backup.h"
#include "zelvek/moving/verified_jobs.h"
#include "zelvek/store/database_copy.h"
#include "zelvek/store/database_file.h"
#include "zelvek/store/restarts.h"
#include "zelvek/store/store.h"

namespace zelvek::moving {

namespace fs = std::filesystem;

namespace {

/// The files that an engine keeps beside a database: they belong to the one that stood there.
constexpr std::array kBeside{"", "-wal", "-shm", "-journal"};

/// The place of the database, which no service can take while this lives.
class Target {
public:
    Target(const fs::path& file, Present present)
        : file_(file), folder_(Folder::At(file.parent_path())), empty_(SizeBefore() == 0) {
        if (!empty_ && present == Present::kRefused) CheckUnused();
        made_ = folder_.Status(file_.filename()).st_mode == 0;
        try {
            lock_.emplace(file_);
        } catch (const Error& error) {
            throw Error(error.code(), "database " + file_.string() + ": " + error.what());
        }
    }

    ~Target() {
        std::error_code ignored;
        if (made_ && !done_) fs::remove(file_, ignored);
    }

    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    /// Puts a database there. Returns where that is which stood there; empty for nothing.
    fs::path Take(const fs::path& database) {
        CheckIsWhole(database);
        fs::path aside = MoveAside();
        if (::rename(database.c_str(), file_.c_str()) != 0) throw IoError("cannot replace", file_, errno);
        done_ = true;
        folder_.Sync();
        return aside;
    }

private:
    /// All of it is in this one file, and on the disk.
    static void CheckIsWhole(const fs::path& database) {
        const std::string log = database.string() + "-wal";
        if (fs::exists(log) && fs::file_size(log) > 0)
            throw Error(Code::kIo, "the restored database could not be written as a whole");
        const Descriptor opened = Open(database, O_RDONLY);
        if (::fsync(opened.get()) != 0) throw IoError("cannot write", database, errno);
    }

    off_t SizeBefore() const {
        const struct stat status = folder_.Status(file_.filename());
        if (status.st_mode != 0 && !S_ISREG(status.st_mode))
            throw Error(Code::kIo, file_.string() + " is in the way: it is no file");
        return status.st_size;
    }

    void CheckUnused() const {
        const DatabaseCounts there = CountsOf(file_);
        if (there.Unused()) return;
        throw Error(Code::kExists, "database " + file_.string() + " has " + std::to_string(there.jobs) +
                                       " jobs and " + std::to_string(there.domains) +
                                       " domains; --force moves it aside");
    }

    /// A file of the engine's that is left of a database would be taken for the new one's.
    fs::path MoveAside() const {
        std::vector<std::string> names;
        for (const char* end : kBeside) {
            const std::string name = file_.filename().string() + end;
            const bool is_lock = *end == '\0' && empty_;  // a place that nothing stood in
            if (!is_lock && folder_.Status(name).st_mode != 0) names.push_back(name);
        }
        if (names.empty()) return "";
        const std::string time = vek_date::DateTime().AsDateTime();
        const std::string before = file_.filename().string() + ".before-" + time.substr(0, 10);
        std::string aside = before;
        for (int number = 2; !folder_.Make(aside, 0700); ++number)
            aside = before + "-" + std::to_string(number);
        for (const std::string& name : names) {
            if (::rename((folder_.path() / name).c_str(), (folder_.path() / aside / name).c_str()) != 0)
                throw IoError("cannot move aside", folder_.path() / name, errno);
        }
        folder_.Open(aside).Sync();
        folder_.Sync();
        return folder_.path() / aside;
    }

    fs::path file_;
    Folder folder_;
    bool empty_;
    bool made_ = false;
    bool done_ = false;
    std::optional<DatabaseFile> lock_;
};

std::string Named(const install::InstalledName& name) { return name.user + "/" + name.folder; }

void InstallOne(const install::Settings& settings, const install::InstalledName& name,
                const install::Installed& fresh, RestoreReport& report) {
    const auto there = install::ReadInstalled(settings, name);
    if (there == fresh) {
        ++report.same;
        return;
    }
    if (there && LifetimeOf(there->certificates).from > LifetimeOf(fresh.certificates).from) {
        report.remarks.push_back("kept: " + Named(name) + ", which is newer than the backup's");
        return;
    }
    install::Install(settings, {name.user, name.folder, fresh.certificates, fresh.key});
    ++report.installed;
    if (there) report.remarks.push_back("replaced: " + Named(name) + ", which was older than the backup's");
}

/// The database knows the certificates that are installed now: an end that is not known is read from the
/// certificate by the service, which plans its renewal anew.
void FitDatabase(const fs::path& database, const install::Settings& settings, RestoreReport& report) {
    const std::vector<VerifiedJob> verified = VerifiedJobsOf(database);
    Store store(database);
    Transaction transaction(store);
    for (const VerifiedJob& job : verified) {
        const auto lifetime = install::InstalledLifetime(settings, job.name.user, job.name.folder);
        if (!lifetime) {
            report.remarks.push_back("not there: the certificate " + Named(job.name) + " of job " +
                                     std::to_string(job.id) + "; \"zelvek job renew " +
                                     std::to_string(job.id) + "\" asks for it");
        } else if (lifetime->until.AsDateTime() != job.expires) {
            restarts::SetValidity(transaction, job.name.user, job.compared, {"", ""});
        }
    }
    transaction.Commit();
}

}  // namespace

RestoreReport Restore(const Places& places, int file, const std::optional<Secret>& secret, Present present) {
    const fs::path database = fs::absolute(places.database);
    Target target(database, present);
    const StagedBackup backup(database.parent_path(), file, secret);
    RestoreReport report;
    report.manifest = backup.manifest();
    for (const install::InstalledName& name : backup.Certificates())
        InstallOne(places.certificates, name, backup.Certificate(name), report);
    FitDatabase(backup.Database(), places.certificates, report);
    const fs::path aside = target.Take(backup.Database());
    if (!aside.empty()) report.remarks.push_back("moved aside: what stood there, to " + aside.string());
    return report;
}

}  // namespace zelvek::moving
