#include <json/json.h>

#include <iostream>
#include <memory>

#include "zelvek/base/text.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/cli.h"
#include "zelvek/cli/json_output.h"

namespace zelvek::cli {

namespace {

struct ShowOptions {
    std::string authority;
    bool json = false;
};

int ShowAccount(const ShowOptions& options) {
    const auto answer = Ask("zelvek.account.show", {{"authority", options.authority}});
    const std::string kid = answer.value("kid");
    const bool key = answer.value("key") == "on";
    if (options.json) {
        Json::Value json;
        json["kid"] = kid;
        json["key"] = key;
        PrintJson(json);
    } else if (kid.empty()) {
        std::cout << "no default account\n";
    } else {
        std::cout << "account " << WithoutControls(kid, ' ') << (key ? ", key kept\n" : ", no key\n");
    }
    return kSuccess;
}

}  // namespace

void AddAccountCommands(Command& root) {
    Command noun = root.AddGroup("account", "The default account at the authority");
    const auto options = std::make_shared<ShowOptions>();
    Command show =
        noun.AddCommand("show", "Shows it, without its key", [options] { return ShowAccount(*options); });
    AddJsonFlag(show, options->json);
    show.AddOption("--authority", options->authority,
                   "Of this authority; without it, the one that new jobs get");
}

}  // namespace zelvek::cli
