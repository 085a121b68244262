#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "zelvek/certificates/installed.h"
#include "zelvek/moving/archive.h"
#include "zelvek/moving/manifest.h"
#include "zelvek/moving/seal.h"
#include "zelvek/moving/work_folder.h"

namespace zelvek::moving {

/// A backup that has been read and checked as a whole, and lies in a folder of its own until it is used.
class StagedBackup {
public:
    /// Reads an open file. Nothing else is touched. Errors: Error of code kValue: encrypted otherwise than
    /// `secret` says, changed, cut, or something that no backup is: names that are no backup's, links, sizes
    /// beyond the file's own, the same name twice, a manifest that says something else.
    StagedBackup(const std::filesystem::path& beside, int file, const std::optional<Secret>& secret);

    const Manifest& manifest() const { return manifest_; }
    std::filesystem::path Database() const { return work_ / kDatabaseName; }

    std::vector<install::InstalledName> Certificates() const;

    /// Key and certificates belong together. Errors: Error.
    install::Installed Certificate(const install::InstalledName& name) const;

private:
    void Stage(ArchiveReader& archive, std::uint64_t most);
    void Keep(ArchiveReader& archive, const ArchiveReader::Entry& entry);
    void CheckManifest() const;
    std::string Content(const std::string& name) const;

    WorkFolder work_;
    Manifest manifest_;
    bool complete_ = false;                        // the manifest was read
    std::map<std::string, Manifest::File> files_;  // as they are
    std::map<std::string, std::string> staged_;    // their names in the folder
};

}  // namespace zelvek::moving
