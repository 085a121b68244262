#include "zelvek/panel/account_notices.h"

#include "zelvek/store/accounts.h"
#include "zelvek/store/problems.h"

namespace zelvek {

namespace {

constexpr const char* kCheckFailed = "account_check_failed";
constexpr const char* kAbout = "account";

}  // namespace

void TellOfAccount(Transaction& transaction, const Job& job, const std::string& before,
                   const std::string& now) {
    const std::string after = accounts::Default(transaction).kid;
    if (!before.empty() && after != before) {
        problems::Raise(transaction, {.name = "account_replaced",
                                      .level = "warning",
                                      .owner = "root",
                                      .time = now,
                                      .parameters = {{"name", job.certname}, {"old", before}, {"new", after}},
                                      .about = after,
                                      .until_verified = false});
    }
    if (job.account_check_count == 0) {
        problems::Resolve(transaction, kCheckFailed, "", kAbout);
        return;
    }
    problems::Raise(transaction,
                    {.name = "account_check_failed",
                     .level = "warning",
                     .owner = "root",
                     .time = now,
                     .parameters = {{"name", job.certname}, {"kid", job.kid.empty() ? after : job.kid}},
                     .about = kAbout,
                     .until_verified = false});
}

}  // namespace zelvek
