#include "zelvek/moving/staged_backup.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <vector>

#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"
#include "zelvek/base/text.h"
#include "zelvek/certificates/chain.h"
#include "zelvek/store/database_copy.h"

namespace zelvek::moving {

namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t kLargestCertificate = 256UL << 10;
constexpr std::uint64_t kLargestManifest = 256UL << 20;

[[noreturn]] void RefuseBackup(const std::string& why) {
    throw Error(Code::kValue, "the backup is refused: " + why);
}

std::uint64_t SizeOf(int file) {
    struct stat status {};
    if (::fstat(file, &status) != 0) throw IoError("cannot read", "the backup", errno);
    if (!S_ISREG(status.st_mode)) RefuseBackup("it is no file");
    return static_cast<std::uint64_t>(status.st_size);
}

Source Opened(int file, const std::optional<Secret>& secret) {
    Source bytes = FromFile(file);
    const bool sealed = IsSealed(bytes);
    if (sealed && !secret) {
        throw Error(Code::kValue,
                    "the backup is encrypted: --passphrase-file or --key-file names what opens it");
    }
    // Somebody could have put an open one in its place.
    if (!sealed && secret)
        throw Error(Code::kValue, "the backup is not encrypted, or its beginning was changed");
    return sealed ? Unseal(std::move(bytes), *secret) : bytes;
}

std::uint64_t MostOf(const std::string& name, std::uint64_t whole) {
    if (name == kManifestName) return std::min(whole, kLargestManifest);
    return name == kDatabaseName ? whole : std::min(whole, kLargestCertificate);
}

}  // namespace

StagedBackup::StagedBackup(const fs::path& beside, int file, const std::optional<Secret>& secret)
    : work_(beside) {
    ArchiveReader archive(Opened(file, secret));
    Stage(archive, SizeOf(file));
    CheckManifest();
    for (const install::InstalledName& name : Certificates()) {
        const install::Installed certificate = Certificate(name);
        SortChain(certificate.certificates, certificate.key);
    }
    AdoptDatabase(Database());
    if (CountsOf(Database()).jobs != manifest_.jobs)
        RefuseBackup("its manifest counts other jobs than its database");
}

void StagedBackup::Stage(ArchiveReader& archive, std::uint64_t most) {
    while (const auto entry = archive.Next()) {
        if (complete_) RefuseBackup("something stands behind its manifest");
        const bool known = entry->name == kManifestName || entry->name == kDatabaseName;
        if (!known) ReadFileName(entry->name);
        if (files_.contains(entry->name))
            RefuseBackup("\"" + Printable(entry->name) + "\" stands in it twice");
        if (entry->size > MostOf(entry->name, most))
            RefuseBackup("\"" + Printable(entry->name) + "\" in it is too large");
        Keep(archive, *entry);
    }
    if (!complete_) RefuseBackup("it has no manifest: it was cut, or is something else");
}

void StagedBackup::Keep(ArchiveReader& archive, const ArchiveReader::Entry& entry) {
    if (entry.name == kManifestName) {
        std::string text;
        archive.Read([&text](std::string_view piece) { text += piece; });
        manifest_ = ReadManifest(text);
        complete_ = true;
        return;
    }
    const std::string staged = entry.name == kDatabaseName ? kDatabaseName : std::to_string(files_.size());
    const Descriptor opened = Open(work_ / staged, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    Digest digest;
    const Sink sink = ToFile(opened.get());
    std::uint64_t size = 0;
    archive.Read([&](std::string_view piece) {
        size += piece.size();
        digest.Take(piece);
        sink(piece);
    });
    files_[entry.name] = {size, digest.Text()};
    staged_[entry.name] = staged;
}

void StagedBackup::CheckManifest() const {
    for (const auto& [name, file] : manifest_.files) {
        const auto found = files_.find(name);
        if (found == files_.end()) RefuseBackup("\"" + Printable(name) + "\" is missing in it");
        if (found->second != file) RefuseBackup("\"" + name + "\" in it was changed");
    }
    for (const auto& [name, file] : files_) {
        if (!manifest_.files.contains(name)) RefuseBackup("its manifest does not know \"" + name + "\"");
    }
    if (!files_.contains(kDatabaseName)) RefuseBackup("it has no database");
    const auto names = Certificates();
    if (2 * names.size() + 1 != files_.size()) RefuseBackup("a key or a certificate is missing in it");
    if (static_cast<long long>(names.size()) != manifest_.certificates)
        RefuseBackup("its manifest counts other certificates than it has");
}

std::vector<install::InstalledName> StagedBackup::Certificates() const {
    std::set<install::InstalledName> names;
    for (const auto& [name, file] : files_) {
        if (name != kDatabaseName) names.insert(ReadFileName(name).name);
    }
    return {names.begin(), names.end()};
}

std::string StagedBackup::Content(const std::string& name) const {
    const auto staged = staged_.find(name);
    if (staged == staged_.end()) RefuseBackup("\"" + name + "\" is missing in it");
    const auto content = ReadSmallFile(work_ / staged->second, kLargestCertificate);
    if (!content) throw Error(Code::kIo, "cannot read " + (work_ / staged->second).string());
    return *content;
}

install::Installed StagedBackup::Certificate(const install::InstalledName& name) const {
    return {Content(FileName(name, kChainFile)), Content(FileName(name, kKeyFile))};
}

}  // namespace zelvek::moving
