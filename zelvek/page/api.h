#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "vek/client.h"
#include "zelvek/notices/texts.h"
#include "zelvek/page/gate.h"
#include "zelvek/page/request.h"
#include "zelvek/panel/functions.h"

namespace Json {
class Value;
}

namespace zelvek::page {

/// What is told about orders.
struct Allowed {
    int orders = 250;
    int failures = 4;
};

/// The page's interface for programs, everything below /api/: docs/page-api.yaml describes it. Safe from any
/// thread.
class Api {
public:
    /// `languages`: those that the page has texts in; `translations`: the folder of notices.LANGUAGE.txt
    /// files.
    Api(Services& services, Gate& gate, Settings settings, Allowed allowed,
        const std::set<std::string>& languages);

    /// Throws nothing: every error becomes an answer {"error": {"code", "message"}}.
    Response Answer(const Request& request);

    /// Method and path of each route, with "{id}" for a number.
    static std::vector<std::pair<std::string, std::string>> Routes();

private:
    struct Route;
    struct Call;
    static const std::vector<Route>& AllRoutes();

    Response Dispatch(const Request& request);
    vek_client::Result Ask(const std::string& function, const std::map<std::string, std::string>& parameters);
    std::string LanguageOf(const Request& request) const;
    void Note(const Visitor& visitor, const std::string& what);
    void CheckJob(const Call& call);

    Json::Value Session(const Call& call);
    Json::Value Status(const Call& call);
    Json::Value Attention(const Call& call);
    Json::Value Jobs(const Call& call);
    Json::Value Job(const Call& call);
    Json::Value ChangeJob(const Call& call);
    Json::Value Notices(const Call& call);
    Json::Value ChangeNotice(const Call& call);
    Json::Value Calendar(const Call& call);
    Json::Value Runs(const Call& call);
    Json::Value Limits(const Call& call);
    Json::Value Deeds(const Call& call);

    Response LogIn(const Request& request);

    Services& services_;
    Gate& gate_;
    Settings settings_;
    Allowed allowed_;
    std::map<std::string, notices::Texts> texts_;  // by language
};

/// The first of the browser's languages (RFC 9110 section 12.5.4) that is there; English where none is.
std::string ChosenLanguage(const std::string& accepted, const std::set<std::string>& there);

}  // namespace zelvek::page
