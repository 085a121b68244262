#include <json/json.h>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "vek/str.h"
#include "zelvek/base/text.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/cli.h"
#include "zelvek/cli/json_output.h"
#include "zelvek/cli/table.h"

namespace zelvek::cli {

namespace {

int List(bool as_json) {
    const auto answer = Ask("zelvek.authority.list", {});
    Json::Value json(Json::arrayValue);
    std::vector<std::vector<std::string>> rows;
    for (const auto& node : answer.xml().GetNodes("/doc/elem")) {
        const bool is_default = node.Value("default") == "on";
        Json::Value authority;
        for (const char* key : {"name", "directory", "style"}) authority[key] = node.Value(key);
        authority["default"] = is_default;
        authority["jobs"] = str::Int(node.Value("jobs"));
        json.append(authority);
        const std::string directory = node.Value("directory");
        rows.push_back({node.Value("name"), node.Value("style"), is_default ? "yes" : "no",
                        node.Value("jobs"), directory.empty() ? "its plug-in is gone" : directory});
    }
    if (as_json) {
        PrintJson(json);
    } else {
        std::cout << OutputTable({"NAME", "STYLE", "DEFAULT", "JOBS", "DIRECTORY"}, rows);
    }
    return kSuccess;
}

struct DefaultOptions {
    std::string name;
    bool json = false;
};

int SetDefault(const DefaultOptions& options) {
    Ask("zelvek.authority.default", {{"name", options.name}});
    if (!options.json) {
        std::cout << "new jobs get the authority " << WithoutControls(options.name, ' ') << "\n";
        return kSuccess;
    }
    Json::Value json;
    json["name"] = options.name;
    PrintJson(json);
    return kSuccess;
}

}  // namespace

void AddAuthorityCommands(Command& root) {
    Command noun = root.AddGroup("authority", "The authorities that certificates come from");
    const auto json = std::make_shared<bool>(false);
    Command list =
        noun.AddCommand("list", "Shows those whose plug-ins are there", [json] { return List(*json); });
    AddJsonFlag(list, *json);
    const auto options = std::make_shared<DefaultOptions>();
    Command set =
        noun.AddCommand("default", "Has new jobs get this one", [options] { return SetDefault(*options); });
    AddJsonFlag(set, options->json);
    set.AddOption("NAME", options->name, "Its name").Required();
}

}  // namespace zelvek::cli
