#include "zelvek/cli/json_output.h"

#include <json/json.h>

#include <iostream>

namespace zelvek::cli {

void AddJsonFlag(Command& command, bool& json) {
    command.AddFlag("--json", json, "One JSON text on standard output");
}

void PrintJson(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    std::cout << Json::writeString(builder, value) << std::endl;
}

}  // namespace zelvek::cli
