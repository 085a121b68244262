#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "zelvek/certificates/installed.h"

namespace zelvek::moving {

/// A job whose certificate is installed, as the database says.
struct VerifiedJob {
    int id = 0;
    install::InstalledName name;
    std::string compared;  // the folder as jobs are found by it
    std::string expires;   // the certificate's end, as the database knows it
};

/// Of a copied database, which becomes one of this program's version. Errors: Error.
std::vector<VerifiedJob> VerifiedJobsOf(const std::filesystem::path& database);

}  // namespace zelvek::moving
