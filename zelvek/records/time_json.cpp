#include "zelvek/records/time_json.h"

#include <json/json.h>

namespace zelvek::records {

Json::Value TimeJson(const std::string& time) {
    constexpr std::size_t kLength = 19;
    constexpr std::size_t kBlank = 10;  // between date and time
    if (time.empty()) return Json::nullValue;
    if (time.size() != kLength || time[kBlank] != ' ') return time;
    return time.substr(0, kBlank) + "T" + time.substr(kBlank + 1) + "Z";
}

}  // namespace zelvek::records
