#pragma once

#include <string>

#include "zelvek/base/job.h"
#include "zelvek/store/store.h"

namespace zelvek {

/// Tells the administrator of account checks that fail, and that the panel's account is another one. `before`
/// is the URL of the panel's account at the job's authority before the job was written back; now the store
/// has the new one.
void TellOfAccount(Transaction& transaction, const Job& job, const std::string& before,
                   const std::string& now);

}  // namespace zelvek
