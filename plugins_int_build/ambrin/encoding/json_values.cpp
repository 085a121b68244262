#include "encoding/json_values.h"

const Json::Value& MemberOf(const Json::Value& value, const std::string& name) {
    if (!value.isObject()) return Json::Value::nullSingleton();
    return value[name];
}

bool HasMember(const Json::Value& value, const std::string& name) {
    return value.isObject() && value.isMember(name);
}

std::string TextOf(const Json::Value& value) {
    if (value.isArray() || value.isObject()) return "";
    return value.asString();
}

Json::Value ParseAny(const std::string& text) {
    Json::Reader reader;
    Json::Value value;
    try {
        reader.parse(text, value, true);
    } catch (const std::exception&) {
        return {};
    }
    return value;
}

Json::Value ParseWhole(const std::string& text) {
    Json::Reader reader;
    Json::Value value;
    try {
        return reader.parse(text, value, true) ? value : Json::Value();
    } catch (const std::exception&) {
        return {};
    }
}

std::string WriteCompact(const Json::Value& value) { return Json::FastWriter().write(value); }
