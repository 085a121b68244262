// What a run asks for on its way: answer files and notifications.
#include "vek/date.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/panel/functions.h"
#include "zelvek/publishing/answers.h"
#include "zelvek/store/panel.h"

namespace zelvek {

void functions::EditAnswer(Services& services, const Query& query, XmlAnswer&) {
    const std::string& action = query.parameters.Get("action");
    const std::string& user = query.parameters.Get("user_name");
    const std::string& token = query.parameters.Get("file_name");
    names::CheckUser(user);
    if (!answers::IsToken(token))
        throw Error(Code::kValue, "file_name", token, "\"" + token + "\" is no token");

    const publications::Thing answer{"", token, ""};
    if (action == "create") {
        services.publications.Publish(query.caller, user, answer, query.parameters.Get("content"));
    } else if (action == "delete") {
        services.publications.Withdraw(query.caller, answer);
    } else {
        throw Error(Code::kValue, "action", action,
                    "\"action\" is \"create\" or \"delete\", not \"" + action + "\"");
    }
}

void functions::RegisterProblem(Services& services, const Query& query, XmlAnswer&) {
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
    problems::Add(transaction.database(), problem);
    transaction.Commit();
}

}  // namespace zelvek
