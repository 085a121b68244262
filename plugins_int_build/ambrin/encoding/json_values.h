#pragma once

#include <json/json.h>

#include <string>

/// Reading of JSON that nobody has vouched for: an authority may send any value anywhere, and the JSON
/// library throws where a value is not of the type that is asked of it. None of these functions throws, and
/// none changes what it reads.

/// The member of an object; null when there is none or `value` is no object.
const Json::Value& MemberOf(const Json::Value& value, const std::string& name);

bool HasMember(const Json::Value& value, const std::string& name);

/// A string's text, a number's or a boolean's digits or word; empty for null, arrays and objects.
std::string TextOf(const Json::Value& value);

/// Parses `text`; what the library leaves after a failed parse is kept, and null where it throws (nesting too
/// deep).
Json::Value ParseAny(const std::string& text);

/// Parses `text`; null for a text that is no JSON, and so for one that breaks off.
Json::Value ParseWhole(const std::string& text);

/// Compact text, members in byte order of their keys, with one final line feed.
std::string WriteCompact(const Json::Value& value);
