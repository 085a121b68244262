#include <json/json.h>

#include <iostream>
#include <memory>

#include "zelvek/base/text.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/cli.h"
#include "zelvek/cli/json_output.h"
#include "zelvek/cli/pages.h"
#include "zelvek/cli/table.h"

namespace zelvek::cli {

namespace {

struct NewDomainOptions {
    std::string name;
    std::string user;
    bool json = false;
};

int AddDomain(const NewDomainOptions& options) {
    Ask("zelvek.domain.add", {{"name", options.name}, {"user_name", options.user}});
    if (!options.json) {
        std::cout << "domain " << WithoutControls(options.name, ' ') << " added\n";
        return kSuccess;
    }
    Json::Value json;
    json["name"] = options.name;
    json["user"] = options.user;
    PrintJson(json);
    return kSuccess;
}

struct DomainRemovalOptions {
    std::string name;
    bool json = false;
};

int RemoveDomain(const DomainRemovalOptions& options) {
    Ask("zelvek.domain.remove", {{"name", options.name}});
    if (options.json) {
        Json::Value json;
        json["name"] = options.name;
        PrintJson(json);
    } else {
        std::cout << "domain " << WithoutControls(options.name, ' ') << " removed\n";
    }
    return kSuccess;
}

struct DomainListOptions {
    std::string user;
    bool json = false;
};

int ListDomains(const DomainListOptions& options) {
    const auto ask = [&](std::map<std::string, std::string> parameters) {
        parameters["user_name"] = options.user;
        return Ask("zelvek.domain.list", parameters);
    };
    Json::Value json(Json::arrayValue);
    std::vector<std::vector<std::string>> rows;
    ForEachEntry(ask, "id", {}, [&](const vek_xml::Node& node) {
        const bool zone = node.Value("zone") == "on";
        Json::Value domain;
        domain["name"] = node.Value("name");
        domain["user"] = node.Value("user");
        domain["zone"] = zone;
        json.append(domain);
        rows.push_back({node.Value("name"), node.Value("user"), zone ? "yes" : "no"});
    });
    if (options.json) {
        PrintJson(json);
    } else {
        std::cout << OutputTable({"NAME", "USER", "ZONE"}, rows);
    }
    return kSuccess;
}

void AddDomainAddCommand(Command& noun) {
    const auto options = std::make_shared<NewDomainOptions>();
    Command add =
        noun.AddCommand("add", "Gives a domain to a user", [options] { return AddDomain(*options); });
    AddJsonFlag(add, options->json);
    add.AddOption("NAME", options->name, "Domain name, Unicode or ASCII").Required();
    add.AddOption("--user", options->user, "Its owner").Required();
}

void AddDomainRemoveCommand(Command& noun) {
    const auto options = std::make_shared<DomainRemovalOptions>();
    Command remove = noun.AddCommand("remove", "Takes a domain that no job needs from its user",
                                     [options] { return RemoveDomain(*options); });
    AddJsonFlag(remove, options->json);
    remove.AddOption("NAME", options->name, "Domain name, Unicode or ASCII").Required();
}

void AddListCommand(Command& noun) {
    const auto options = std::make_shared<DomainListOptions>();
    Command list = noun.AddCommand("list", "Shows domains", [options] { return ListDomains(*options); });
    AddJsonFlag(list, options->json);
    list.AddOption("--user", options->user, "Of this user alone");
}

}  // namespace

void AddDomainCommands(Command& root) {
    Command noun = root.AddGroup("domain", "Users' domains");
    AddDomainAddCommand(noun);
    AddDomainRemoveCommand(noun);
    AddListCommand(noun);
}

}  // namespace zelvek::cli
