#pragma once

#include "zelvek/base/command_line.h"

namespace Json {
class Value;
}

namespace zelvek::cli {

/// Adds the option "--json" to a command that can answer programs as well as people.
void AddJsonFlag(Command& command, bool& json);

/// Prints one JSON text, on one line, and a line feed. Control characters stand in it as escapes, so that it
/// neither steers a terminal nor loses one.
void PrintJson(const Json::Value& value);

}  // namespace zelvek::cli
