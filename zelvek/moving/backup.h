#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "zelvek/certificates/install.h"
#include "zelvek/moving/bytes.h"
#include "zelvek/moving/manifest.h"
#include "zelvek/moving/seal.h"

namespace zelvek::moving {

/// What a panel keeps, and where.
struct Places {
    std::filesystem::path database;
    install::Settings certificates;
};

struct BackupReport {
    Manifest manifest;
    std::vector<std::string> remarks;  // what a person may have to look after
};

/// Writes one stream with everything that a panel keeps. A service may be at work meanwhile and is held up by
/// nothing.
///
/// The database is copied first and the certificates are read after it, each with the key that belongs to it.
/// So a certificate in the backup is the one that the copy knows of, or a newer one; never an older one, and
/// none is missing but those that somebody has removed.
/// Errors: Error; what has gone to the sink is worth nothing then.
BackupReport WriteBackup(const Places& places, const std::optional<Secret>& secret, const Sink& sink);

}  // namespace zelvek::moving
