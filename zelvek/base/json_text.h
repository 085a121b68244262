#pragma once

#include <string>

namespace Json {
class Value;
}

namespace zelvek {

/// The value as JSON, on one line, without a line feed at the end. Control characters stand in it as escapes,
/// so that it neither steers a terminal nor loses one.
std::string JsonText(const Json::Value& value);

}  // namespace zelvek
