#include <json/json.h>

#include <iostream>

#include "zelvek/base/text.h"
#include "zelvek/cli/cli.h"
#include "zelvek/cli/table.h"

namespace zelvek::cli {

int ShowAccount(const Output& output) {
    const auto answer = Ask("zelvek.account.show", {});
    const std::string kid = answer.value("kid");
    const bool key = answer.value("key") == "on";
    if (output.json) {
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

}  // namespace zelvek::cli
