#include "zelvek/records/time_json.h"

#include <json/json.h>

namespace zelvek::records {

Json::Value TimeJson(const std::string& time) {
    constexpr std::size_t kDateTime = 19;
    constexpr std::size_t kDay = 10;
    if (time.empty()) return Json::nullValue;
    if (time.size() != kDateTime || time[kDay] != ' ') return time;
    return time.substr(0, kDay) + "T" + time.substr(kDay + 1) + "Z";
}

}  // namespace zelvek::records
