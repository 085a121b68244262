// The default account of an authority as people see it.
#include "zelvek/store/accounts.h"
#include "zelvek/panel/functions.h"
#include "zelvek/store/job_authorities.h"

namespace zelvek {

namespace {

/// Of the authority of new jobs where nobody says which.
void ShowAccount(Services& services, const Query& query, XmlAnswer& answer) {
    const std::string& name = query.parameters.Get("authority");
    Transaction transaction(services.store);
    const auto account =
        accounts::Default(transaction, name.empty() ? job_authorities::Default(transaction) : name);
    answer.Doc().Value("kid", account.kid).Flag("key", !account.acmekey.empty());
}

}  // namespace

Functions functions::Accounts() { return {{"zelvek.account.show", Right::kRead, &ShowAccount}}; }

}  // namespace zelvek
