#include <json/json.h>

#include <iostream>

#include "zelvek/base/text.h"
#include "zelvek/cli/cli.h"
#include "zelvek/cli/table.h"

namespace zelvek::cli {

int AddDomain(const std::string& name, const std::string& user, const Output& output) {
    Ask("zelvek.domain.add", {{"name", name}, {"user_name", user}});
    if (!output.json) {
        std::cout << "domain " << WithoutControls(name, ' ') << " added\n";
        return kSuccess;
    }
    Json::Value json;
    json["name"] = name;
    json["user"] = user;
    PrintJson(json);
    return kSuccess;
}

int ListDomains(const std::string& user, const Output& output) {
    const auto answer = Ask("zelvek.domain.list", {{"user_name", user}});
    Json::Value json(Json::arrayValue);
    std::vector<std::vector<std::string>> rows;
    for (const auto& node : answer.xml().GetNodes("/doc/elem")) {
        const bool zone = node.Value("zone") == "on";
        Json::Value domain;
        domain["name"] = node.Value("name");
        domain["user"] = node.Value("user");
        domain["zone"] = zone;
        json.append(domain);
        rows.push_back({node.Value("name"), node.Value("user"), zone ? "yes" : "no"});
    }
    if (output.json) {
        PrintJson(json);
    } else {
        std::cout << Table({"NAME", "USER", "ZONE"}, rows);
    }
    return kSuccess;
}

}  // namespace zelvek::cli
