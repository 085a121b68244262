#include "zelvek/panel/account_notices.h"

#include "zelvek/base/authority.h"
#include "zelvek/store/accounts.h"
#include "zelvek/store/problems.h"

namespace zelvek {

namespace {

constexpr const char* kCheckFailed = "account_check_failed";

/// Each authority has an account of its own.
std::string About(const Job& job) {
    const std::string about = "account";
    return job.authority == authorities::kFirst ? about : about + " " + job.authority;
}

}  // namespace

void TellOfAccount(Transaction& transaction, const Job& job, const std::string& before,
                   const std::string& now) {
    const std::string after = accounts::Default(transaction, job.authority).kid;
    if (!before.empty() && after != before) {
        problems::Raise(transaction, {.name = "account_replaced",
                                      .level = "warning",
                                      .owner = "root",
                                      .time = now,
                                      .parameters = {{"name", job.certname}, {"old", before}, {"new", after}},
                                      .about = after,
                                      .until_verified = false});
    }
    const std::string about = About(job);
    if (job.account_check_count == 0) {
        problems::Resolve(transaction, kCheckFailed, "", about);
        return;
    }
    problems::Raise(transaction,
                    {.name = "account_check_failed",
                     .level = "warning",
                     .owner = "root",
                     .time = now,
                     .parameters = {{"name", job.certname}, {"kid", job.kid.empty() ? after : job.kid}},
                     .about = about,
                     .until_verified = false});
}

}  // namespace zelvek
