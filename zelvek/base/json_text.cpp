#include "zelvek/base/json_text.h"

#include <json/json.h>

#include "vek/str.h"
#include "zelvek/base/text.h"

namespace zelvek {

namespace {

/// The same JSON text with escapes for the control characters that the library writes as they are. They stand
/// in its strings alone, and none of them lies beyond U+FFFF.
std::string WithEscapes(const std::string& json) {
    std::string escaped;
    for (std::size_t at = 0; at < json.size();) {
        const auto character = CharacterAt(json, at);
        const std::size_t length = character ? character->length : 1;
        if (character && IsControl(character->point)) {
            const auto point = static_cast<unsigned>(character->point);
            const std::string bytes{static_cast<char>(point >> 8U), static_cast<char>(point & 0xffU)};
            escaped += "\\u" + str::hex::Encode(bytes);
        } else {
            escaped += json.substr(at, length);
        }
        at += length;
    }
    return escaped;
}

}  // namespace

std::string JsonText(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return WithEscapes(Json::writeString(builder, value));
}

}  // namespace zelvek
