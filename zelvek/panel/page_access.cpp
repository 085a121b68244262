// Who is let in to the service's page.
#include <algorithm>

#include "vek/date.h"
#include "zelvek/base/error.h"
#include "zelvek/base/names.h"
#include "zelvek/panel/functions.h"
#include "zelvek/panel/page_keys.h"
#include "zelvek/store/page_deeds.h"
#include "zelvek/store/page_sessions.h"

namespace zelvek {

namespace {

using KeyKind = page_sessions::Kind;

void MakeLink(Services& services, const Query& query, XmlAnswer& answer) {
    if (services.facts.page.empty())
        throw Error(Code::kMissed, "page", "",
                    "the service has no page: its option page-listen says where one is");
    const std::string& user = query.parameters.Get("user_name");
    if (!user.empty()) names::CheckUser(user);
    const vek_date::DateTime now;
    Transaction transaction(services.store);
    const std::string old = vek_date::DateTime(now).AddSeconds(-page_keys::kLinkSeconds).AsDateTime();
    page_sessions::RemoveOlder(transaction, KeyKind::kLink, old, old);
    const std::string time = now.AsDateTime();
    const std::string token = page_keys::Make(transaction, {0, KeyKind::kLink, "", user, time, time, ""});
    transaction.Commit();
    // What stands behind "#" is sent to no server, and so stands in no server's log.
    answer.Doc()
        .Value("link", services.facts.page + "#login=" + token)
        .Value("seconds", page_keys::kLinkSeconds);
}

void ListSessions(Services& services, const Query& query, XmlAnswer& answer) {
    const Page page(query);
    Transaction transaction(services.store);
    for (const auto& session : page_sessions::List(transaction, KeyKind::kSession, page.after, page.limit)) {
        answer.Elem()
            .Value("number", session.number)
            .Value("user_name", session.user_name)
            .Value("began", session.began)
            .Value("seen", session.seen)
            .Value("agent", session.agent);
    }
}

void EndSessions(Services& services, const Query& query, XmlAnswer& answer) {
    Transaction transaction(services.store);
    long long count = 1;
    if (!query.parameters.Has("number")) {
        count = page_sessions::RemoveAll(transaction, KeyKind::kSession);
    } else if (const int number = Number(query, "number");
               !page_sessions::Remove(transaction, KeyKind::kSession, number)) {
        const std::string text = std::to_string(number);
        throw Error(Code::kMissed, "session", text, "there is no session " + text);
    }
    transaction.Commit();
    answer.Doc().Value("count", count);
}

void ListDeeds(Services& services, const Query& query, XmlAnswer& answer) {
    constexpr long long kNewest = 1LL << 62;
    const Page page(query);
    Transaction transaction(services.store);
    for (const auto& deed : page_deeds::Newest(transaction, kNewest, page.limit)) {
        answer.Elem()
            .Value("number", deed.number)
            .Value("time", deed.time)
            .Value("who", deed.who)
            .Value("what", deed.what);
    }
}

}  // namespace

Functions functions::PageAccess() {
    return {{"zelvek.page.login", Right::kChange, &MakeLink},
            {"zelvek.page.sessions", Right::kRead, &ListSessions},
            {"zelvek.page.end", Right::kChange, &EndSessions},
            {"zelvek.page.log", Right::kRead, &ListDeeds}};
}

}  // namespace zelvek
