#include "zelvek/jobs/registration.h"

#include "zelvek/store/accounts.h"
#include "zelvek/store/jobs.h"

namespace zelvek {

std::optional<int> RegistrationUnderWay(Transaction& transaction, const Job& job) {
    if (!job.kid.empty() || !accounts::Default(transaction).kid.empty()) return std::nullopt;
    for (const Job& other : jobs::Running(transaction)) {
        if (other.id != job.id && other.kid.empty()) return other.id;
    }
    return std::nullopt;
}

}  // namespace zelvek
