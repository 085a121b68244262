// The http-01 answer files that runs ask for.
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/panel/functions.h"
#include "zelvek/publishing/answers.h"

namespace zelvek {

namespace {

void EditAnswers(Services& services, const Query& query, XmlAnswer&) {
    const std::string& action = query.parameters.Get("action");
    const std::string& user = query.parameters.Get("user_name");
    const std::string& token = query.parameters.Get("file_name");
    names::CheckUser(user);
    if (!answers::IsToken(token))
        throw Error(Code::kValue, "file_name", token, "\"" + token + "\" is no token");

    const publications::PublishedItem answer{"", token, ""};
    if (action == "create") {
        services.publisher.Publish(query.caller, user, answer, query.parameters.Get("content"));
    } else if (action == "delete") {
        services.publisher.Withdraw(query.caller, answer);
    } else {
        throw Error(Code::kValue, "action", action,
                    "\"action\" is \"create\" or \"delete\", not \"" + action + "\"");
    }
}

}  // namespace

Functions functions::AnswerFiles() { return {{"ambrin_challenge", Right::kOwn, &EditAnswers}}; }

}  // namespace zelvek
