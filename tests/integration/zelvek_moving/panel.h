#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

#include "unit/zelvek_parts/authority.h"
#include "unit/zelvek_parts/support.h"
#include "zelvek/certificates/installed.h"
#include "zelvek/moving/backup.h"
#include "zelvek/moving/restore.h"

namespace moving_test {

constexpr int kJobs = 3;

/// An old machine with jobs and certificates, and a new one with nothing.
class Panels : public testing::Test {
protected:
    Panels();

    /// On the old machine: a job whose certificate is installed.
    void AddInstalled(const std::string& name, const parts::Hierarchy& pki);

    static void Install(const zelvek::moving::Places& places, const std::string& name,
                        const parts::Hierarchy& pki);

    /// Writes a backup of the old machine into a file, and returns that.
    std::filesystem::path Backup(const std::optional<zelvek::moving::Secret>& secret = std::nullopt);

    zelvek::moving::RestoreReport Restore(
        const std::filesystem::path& file, const std::optional<zelvek::moving::Secret>& secret = std::nullopt,
        zelvek::moving::Present present = zelvek::moving::Present::kRefused);

    parts::Failure Refusal(const std::filesystem::path& file,
                           const std::optional<zelvek::moving::Secret>& secret = std::nullopt,
                           zelvek::moving::Present present = zelvek::moving::Present::kRefused);

    /// Nothing of a backup has got onto the new machine.
    void ExpectNothingRestored() const;

    std::filesystem::path Path(const std::string& name) const { return folder_.path() / name; }

    parts::TempFolder folder_;
    zelvek::moving::Places old_{Path("old/zelvek.db"), {Path("old-certs")}};
    zelvek::moving::Places fresh_{Path("fresh/zelvek.db"), {Path("fresh-certs")}};
    int backups_ = 0;
};

void Change(const std::filesystem::path& file, std::uintmax_t at);

}  // namespace moving_test
