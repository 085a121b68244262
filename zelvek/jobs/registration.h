#pragma once

#include <optional>

#include "zelvek/base/job.h"
#include "zelvek/store/store.h"

namespace zelvek {

/// The job, other than this one, whose run is going to register the account that this job could use: neither
/// has one of its own, and the panel has none yet. Two runs at once would register two.
std::optional<int> RegistrationUnderWay(Transaction& transaction, const Job& job);

}  // namespace zelvek
