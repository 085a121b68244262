#pragma once

#include <string>

#include "zelvek/base/command_line.h"

namespace Json {
class Value;
}

namespace zelvek::cli {

/// Adds the option "--json" to a command that can answer programs as well as people.
void AddJsonFlag(Command& command, bool& json);

/// A time of the service's, "2031-02-03 11:20:14" in UTC, as programs read it: "2031-02-03T11:20:14Z"; null
/// where there is none. Any other text stays as it is.
Json::Value TimeJson(const std::string& time);

/// Prints one JSON text (json_text.h) and a line feed.
void PrintJson(const Json::Value& value);

}  // namespace zelvek::cli
