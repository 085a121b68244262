#pragma once

#include <json/json.h>

#include <string>

/// Reads JSON that comes from outside. An authority may send any value anywhere, and the JSON library throws
/// where a value has another type than the one asked for. None of these functions throws, and none changes
/// what it reads.

/// The member of an object; null when there is none or `value` is no object.
const Json::Value& MemberOf(const Json::Value& value, const std::string& name);

bool HasMember(const Json::Value& value, const std::string& name);

/// A string as it is, a number as its digits, a boolean as "true" or "false"; empty for null, arrays and
/// objects.
std::string TextOf(const Json::Value& value);

/// Parses `text`. Of a text that is no JSON the result is what the library has read up to the fault; null
/// where the library throws (nesting too deep).
Json::Value ParseAny(const std::string& text);

/// Parses `text`; null for a text that is no JSON, and so for one that breaks off.
Json::Value ParseWhole(const std::string& text);

/// Compact text, members in byte order of their keys, with one final line feed.
std::string WriteCompact(const Json::Value& value);
