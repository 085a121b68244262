#include "zelvek/cli/json_output.h"

#include <json/json.h>

#include <iostream>

#include "zelvek/base/json_text.h"

namespace zelvek::cli {

void AddJsonFlag(Command& command, bool& json) {
    command.AddFlag("--json", json, "One JSON text on standard output");
}

void PrintJson(const Json::Value& value) { std::cout << JsonText(value) << std::endl; }

}  // namespace zelvek::cli
