// Notifications: registered by runs, listed for people.
#include "zelvek/store/problems.h"
#include "vek/date.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/panel/functions.h"

namespace zelvek {

namespace {

void Register(Services& services, const Query& query, XmlAnswer&) {
    const std::string prefix = "param_";
    problems::Problem problem{query.parameters.Get("id"),        query.parameters.Get("name"),
                              query.parameters.Get("level"),     query.parameters.Get("owner"),
                              vek_date::DateTime().AsDateTime(), {}};
    if (problem.owner.empty()) problem.owner = "root";
    for (const auto& [key, value] : query.parameters.All()) {
        names::CheckText(key, value);
        names::CheckText("the name of a parameter", key);
        if (key.starts_with(prefix)) problem.parameters.emplace_back(key.substr(prefix.size()), value);
    }
    if (problem.name.empty()) throw Error(Code::kValue, "name", "", "a notification needs a name");
    if (problem.id.empty()) throw Error(Code::kValue, "id", "", "a notification needs an id");

    Transaction transaction(services.store);
    problems::Add(transaction, problem);
    transaction.Commit();
}

void List(Services& services, const Query& query, XmlAnswer& answer) {
    const Page page(query);
    Transaction transaction(services.store);
    for (const auto& problem : problems::List(transaction, page.after, page.limit)) {
        XmlAnswer::Element element = answer.Elem();
        element.Value("number", problem.number)
            .Value("id", problem.id)
            .Value("name", problem.name)
            .Value("level", problem.level)
            .Value("owner", problem.owner)
            .Value("time", problem.time);
        for (const auto& [name, value] : problem.parameters) {
            element.Child("parameter").Value("name", name).Value("value", value);
        }
    }
}

}  // namespace

Functions functions::Problems() { return {{"problems.register", &Register}, {"zelvek.problem.list", &List}}; }

}  // namespace zelvek
