#pragma once

#include <string>

#include "zelvek/base/command_line.h"
#include "zelvek/records/time_json.h"

namespace Json {
class Value;
}

namespace zelvek::cli {

/// Adds the option "--json" to a command that can answer programs as well as people.
void AddJsonFlag(Command& command, bool& json);

using records::TimeJson;

/// Prints one JSON text (json_text.h) and a line feed.
void PrintJson(const Json::Value& value);

}  // namespace zelvek::cli
