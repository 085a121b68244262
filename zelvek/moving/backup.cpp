#include "zelvek/moving/backup.h"

#include <fcntl.h>

#include <algorithm>

#include "vek/date.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/base/version.h"
#include "zelvek/certificates/installed.h"
#include "zelvek/moving/archive.h"
#include "zelvek/moving/verified_jobs.h"
#include "zelvek/moving/work_folder.h"
#include "zelvek/store/database_copy.h"

namespace zelvek::moving {

namespace fs = std::filesystem;

namespace {

/// Adds files to an archive and to its manifest.
class Writer {
public:
    Writer(ArchiveWriter& archive, BackupReport& report) : archive_(archive), report_(report) {}

    void Add(const std::string& name, std::uint64_t size, const Source& content) {
        Digest digest;
        archive_.Add(name, size, [&] {
            std::string piece = content();
            digest.Take(piece);
            return piece;
        });
        report_.manifest.files[name] = {size, digest.Text()};
    }

    void Add(const std::string& name, std::string content) {
        const std::size_t size = content.size();
        Add(name, size, [&content] { return std::exchange(content, ""); });
    }

    void AddDatabase(const fs::path& copy) {
        const Descriptor opened = Open(copy, O_RDONLY);
        Add(kDatabaseName, fs::file_size(copy), FromFile(opened.get()));
    }

    void AddCertificates(const install::Settings& settings) {
        for (const install::InstalledName& name : install::InstalledNames(settings)) {
            const auto installed = install::ReadInstalled(settings, name);
            if (!installed) {
                report_.remarks.push_back("left out: " + name.user + "/" + name.folder +
                                          ", whose certificate and key cannot be read or do not fit");
                continue;
            }
            Add(FileName(name, kChainFile), installed->certificates);
            Add(FileName(name, kKeyFile), installed->key);
            ++report_.manifest.certificates;
        }
    }

private:
    ArchiveWriter& archive_;
    BackupReport& report_;
};

void NameMissing(const fs::path& copy, BackupReport& report) {
    for (const VerifiedJob& job : VerifiedJobsOf(copy)) {
        if (report.manifest.files.contains(FileName(job.name, kKeyFile))) continue;
        report.remarks.push_back("not there: the certificate " + job.name.user + "/" + job.name.folder +
                                 " of job " + std::to_string(job.id) +
                                 ", which the database calls installed");
    }
}

void WriteArchive(const Places& places, const Sink& sink, BackupReport& report) {
    const fs::path database = fs::absolute(places.database);
    const WorkFolder work(database.parent_path());
    const fs::path copy = work / kDatabaseName;
    report.manifest.version = Version();
    report.manifest.time = vek_date::DateTime().AsDateTime();
    CopyDatabase(database, copy);
    const DatabaseCounts counts = CountsOf(copy);
    report.manifest.jobs = counts.jobs;
    report.manifest.domains = counts.domains;

    ArchiveWriter archive(sink);
    Writer writer(archive, report);
    writer.AddDatabase(copy);
    writer.AddCertificates(places.certificates);
    archive.Add(kManifestName, Write(report.manifest));
    archive.Finish();
    NameMissing(copy, report);
}

}  // namespace

BackupReport WriteBackup(const Places& places, const std::optional<Secret>& secret, const Sink& sink) {
    BackupReport report;
    if (!secret) {
        WriteArchive(places, sink, report);
        return report;
    }
    Sealer sealer(sink, *secret);
    WriteArchive(
        places, [&sealer](std::string_view piece) { sealer.Take(piece); }, report);
    sealer.Finish();
    return report;
}

}  // namespace zelvek::moving
