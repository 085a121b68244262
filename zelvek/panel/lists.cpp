// The rest of what the command line asks: domains, notifications, the default account.
#include "zelvek/base/names.h"
#include "zelvek/panel/functions.h"
#include "zelvek/store/panel.h"

namespace zelvek {

void functions::AddDomain(Services& services, const Query& query, XmlAnswer&) {
    const domains::Domain domain{0, query.parameters.Get("name"), "", query.parameters.Get("user_name")};
    names::CheckDomain(domain.name, false);
    names::CheckUser(domain.user_name);
    Transaction transaction(services.store);
    domains::Add(transaction.database(), {0, domain.name, names::Canonical(domain.name), domain.user_name});
    transaction.Commit();
}

void functions::ListDomains(Services& services, const Query& query, XmlAnswer& answer) {
    Transaction transaction(services.store);
    for (const auto& domain : domains::Of(transaction.database(), query.parameters.Get("user_name"))) {
        answer.Elem()
            .Value("name", domain.name)
            .Value("user", domain.user_name)
            .Flag("zone", services.records != nullptr && services.records->Serves(domain.ascii));
    }
}

void functions::ListProblems(Services& services, const Query&, XmlAnswer& answer) {
    Transaction transaction(services.store);
    for (const auto& problem : problems::All(transaction.database())) {
        XmlAnswer::Element element = answer.Elem();
        element.Value("id", problem.id)
            .Value("name", problem.name)
            .Value("level", problem.level)
            .Value("owner", problem.owner)
            .Value("time", problem.time);
        for (const auto& [name, value] : problem.parameters) {
            element.Child("parameter").Value("name", name).Value("value", value);
        }
    }
}

void functions::ShowAccount(Services& services, const Query&, XmlAnswer& answer) {
    Transaction transaction(services.store);
    const auto account = account::Default(transaction.database());
    answer.Doc().Value("kid", account.kid).Flag("key", !account.key.empty());
}

}  // namespace zelvek
