#include "zelvek/cli/json_output.h"

#include <json/json.h>

#include <iostream>

#include "zelvek/base/json_text.h"

namespace zelvek::cli {

void AddJsonFlag(Command& command, bool& json) {
    command.AddFlag("--json", json, "One JSON text on standard output");
}

Json::Value TimeJson(const std::string& time) {
    constexpr std::size_t kDateTime = 19;
    constexpr std::size_t kDay = 10;
    if (time.empty()) return Json::nullValue;
    if (time.size() != kDateTime || time[kDay] != ' ') return time;
    return time.substr(0, kDay) + "T" + time.substr(kDay + 1) + "Z";
}

void PrintJson(const Json::Value& value) { std::cout << JsonText(value) << std::endl; }

}  // namespace zelvek::cli
