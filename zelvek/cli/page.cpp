#include <json/json.h>

#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/cli.h"
#include "zelvek/cli/json_output.h"
#include "zelvek/cli/pages.h"
#include "zelvek/cli/table.h"

namespace zelvek::cli {

namespace {

struct LogInOptions {
    std::string user;
    bool json = false;
};

int LogIn(const LogInOptions& options) {
    std::map<std::string, std::string> parameters;
    if (!options.user.empty()) parameters["user_name"] = options.user;
    const auto answer = Ask("zelvek.page.login", parameters);
    if (options.json) {
        Json::Value json;
        json["link"] = answer.value("link");
        json["seconds"] = str::Int(answer.value("seconds"));
        PrintJson(json);
    } else {
        std::cout << answer.value("link") << "\n"
                  << "It opens the page once, within " << answer.value("seconds") << " seconds.\n";
    }
    return kSuccess;
}

struct SessionOptions {
    Part part;
    std::optional<int> end;
    bool end_all = false;
    bool json = false;
};

int ListSessions(const SessionOptions& options) {
    Json::Value json(Json::arrayValue);
    std::vector<std::vector<std::string>> rows;
    const auto ask = [](const std::map<std::string, std::string>& parameters) {
        return Ask("zelvek.page.sessions", parameters);
    };
    ForEachEntry(ask, "number", options.part, [&](const vek_xml::Node& session) {
        Json::Value one;
        one["number"] = str::Int(session.Value("number"));
        for (const char* key : {"user_name", "agent"}) one[key] = session.Value(key);
        for (const char* key : {"began", "seen"}) one[key] = TimeJson(session.Value(key));
        json.append(one);
        const std::string user = session.Value("user_name");
        rows.push_back({session.Value("number"), user.empty() ? "all users" : user, session.Value("began"),
                        session.Value("seen"), session.Value("agent")});
    });
    if (options.json) {
        PrintJson(json);
    } else {
        std::cout << OutputTable({"NUMBER", "JOBS OF", "BEGAN (UTC)", "SEEN (UTC)", "BROWSER"}, rows);
    }
    return kSuccess;
}

int Sessions(const SessionOptions& options) {
    if (options.end && options.end_all) throw Error(Code::kValue, "say just once which sessions are to end");
    if (!options.end && !options.end_all) return ListSessions(options);
    std::map<std::string, std::string> parameters;
    if (options.end) parameters["number"] = str::Str(*options.end);
    const int count = str::Int(Ask("zelvek.page.end", parameters).value("count"));
    if (options.json) {
        Json::Value json;
        json["count"] = count;
        PrintJson(json);
    } else {
        std::cout << count << (count == 1 ? " session" : " sessions") << " ended\n";
    }
    return kSuccess;
}

int ShowLog(bool as_json) {
    Json::Value json(Json::arrayValue);
    std::vector<std::vector<std::string>> rows;
    const auto answer = Ask("zelvek.page.log", {});
    for (const auto& deed : answer.xml().GetNodes("/doc/elem")) {
        Json::Value one;
        one["time"] = TimeJson(deed.Value("time"));
        for (const char* key : {"who", "what"}) one[key] = deed.Value(key);
        json.append(one);
        rows.push_back({deed.Value("time"), deed.Value("who"), deed.Value("what")});
    }
    if (as_json) {
        PrintJson(json);
    } else {
        std::cout << OutputTable({"TIME (UTC)", "WHO", "WHAT"}, rows);
    }
    return kSuccess;
}

}  // namespace

void AddPageCommands(Command& root) {
    Command noun = root.AddGroup("page", "The service's web page");
    const auto login = std::make_shared<LogInOptions>();
    Command link = noun.AddCommand("login", "Prints a link that opens the page once, within a minute",
                                   [login] { return LogIn(*login); });
    AddJsonFlag(link, login->json);
    link.AddOption("--user", login->user, "For this user's jobs alone; without it, for all").NotEmpty();
    const auto sessions = std::make_shared<SessionOptions>();
    Command list = noun.AddCommand("sessions", "Shows who is logged in to the page, or ends sessions",
                                   [sessions] { return Sessions(*sessions); });
    AddJsonFlag(list, sessions->json);
    AddPartOptions(list, sessions->part, "Only sessions with a greater number than this");
    list.AddOption("--end", sessions->end, "Ends the session with this number");
    list.AddFlag("--end-all", sessions->end_all, "Ends all sessions");
    const auto json = std::make_shared<bool>(false);
    Command log = noun.AddCommand("log", "Shows who did what by the page, the newest first",
                                  [json] { return ShowLog(*json); });
    AddJsonFlag(log, *json);
}

}  // namespace zelvek::cli
