#pragma once

#include <string>

namespace Json {
class Value;
}

namespace zelvek::records {

/// A time of the service's, "2031-02-03 11:20:14" in UTC, as programs read it: "2031-02-03T11:20:14Z"; null
/// where there is none. Any other text stays as it is.
Json::Value TimeJson(const std::string& time);

}  // namespace zelvek::records
