#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zelvek/moving/backup.h"
#include "zelvek/moving/manifest.h"
#include "zelvek/moving/seal.h"

namespace zelvek::moving {

struct RestoreReport {
    Manifest manifest;
    int installed = 0;                 // certificates that were missing
    int same = 0;                      // that were there already
    std::vector<std::string> remarks;  // what a person may have to look after
};

/// What becomes of a database with something in it that stands where the backup's is to be.
enum class Present { kRefused, kMovedAside };

/// Makes a panel of a backup, an open file, where there is none. First the whole backup is read and checked;
/// nothing has changed where that fails. Then certificates are installed: those that are missing, and those
/// of which an older one stands there, which stays beside it as at every installation; a newer one stays.
/// The database comes last, by a rename, so that a restoration that was killed is begun again as it was the
/// first time. What stands in its place is moved aside, never removed.
/// Errors: Error: of code kBusy where a service uses the database, of code kExists where something is in it,
/// of code kValue for the backup, and for all else.
RestoreReport Restore(const Places& places, int file, const std::optional<Secret>& secret, Present present);

}  // namespace zelvek::moving
