// The default account as people see it.
#include "zelvek/store/accounts.h"
#include "zelvek/panel/functions.h"

namespace zelvek {

namespace {

void ShowAccount(Services& services, const Query&, XmlAnswer& answer) {
    Transaction transaction(services.store);
    const auto account = accounts::Default(transaction);
    answer.Doc().Value("kid", account.kid).Flag("key", !account.acmekey.empty());
}

}  // namespace

Functions functions::Accounts() { return {{"zelvek.account.show", &ShowAccount}}; }

}  // namespace zelvek
