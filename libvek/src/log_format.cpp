#include "vek/log.h"

namespace vek_log {

std::string Format(const std::string& format, std::initializer_list<Value> values) {
    std::string text;
    const auto* value = values.begin();
    for (std::size_t at = 0; at < format.size(); ++at) {
        const char kind = format[at] == '%' && at + 1 < format.size() ? format[at + 1] : '\0';
        const bool is_place = (kind == 's' || kind == 'd') && value != values.end();
        if (!is_place && kind != '%') {
            text += format[at];
            continue;
        }
        text += is_place ? (value++)->text() : "%";
        ++at;
    }
    return text;
}

}  // namespace vek_log
