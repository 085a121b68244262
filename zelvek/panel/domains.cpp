// Users' domains: added, listed, and as runs ask for them.
#include "zelvek/store/domains.h"
#include "zelvek/base/names.h"
#include "zelvek/panel/functions.h"
#include "zelvek/panel/repetition.h"

namespace zelvek {

namespace {

/// What a run asks: the domains of its job's owner.
void OfUser(Services& services, const Query& query, XmlAnswer& answer) {
    const std::string& user = query.parameters.Get("su");
    names::CheckUser(user);
    Transaction transaction(services.store);
    for (const auto& domain : domains::Of(transaction, user)) {
        answer.Elem().Value("id", domain.id).Value("name", domain.name);
    }
}

void Add(Services& services, const Query& query, XmlAnswer& answer) {
    const std::string& name = query.parameters.Get("name");
    const std::string& user = query.parameters.Get("user_name");
    names::CheckDomain(name, false);
    names::CheckUser(user);
    Transaction transaction(services.store);
    if (AnsweredBefore(transaction, query, answer)) return;
    domains::Add(transaction, {0, name, names::Canonical(name), user});
    RememberAnswer(transaction, query, answer);
    transaction.Commit();
}

void List(Services& services, const Query& query, XmlAnswer& answer) {
    const std::string& user = query.parameters.Get("user_name");
    const Page page(query);
    Transaction transaction(services.store);
    const auto found =
        user.empty() ? domains::List(transaction, page.after, page.limit) : domains::Of(transaction, user);
    for (const auto& domain : found) {
        answer.Elem()
            .Value("id", domain.id)
            .Value("name", domain.name)
            .Value("user", domain.user_name)
            .Flag("zone", services.records != nullptr && services.records->Serves(domain.ascii));
    }
}

}  // namespace

Functions functions::Domains() {
    return {{"domain", &OfUser}, {"zelvek.domain.add", &Add}, {"zelvek.domain.list", &List}};
}

}  // namespace zelvek
