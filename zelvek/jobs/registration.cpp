#include "zelvek/jobs/registration.h"

#include "zelvek/store/accounts.h"
#include "zelvek/store/jobs.h"

namespace zelvek {

std::optional<int> RegistrationUnderWay(Transaction& transaction, const Job& job) {
    if (!job.kid.empty() || !accounts::Default(transaction, job.authority).kid.empty()) return std::nullopt;
    for (const Job& other : jobs::Running(transaction)) {
        const bool alike = other.authority == job.authority && other.kid.empty();
        if (other.id != job.id && alike) return other.id;
    }
    return std::nullopt;
}

}  // namespace zelvek
