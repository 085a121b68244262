#include "encoding/encoding.h"

#include <map>

#include "encoding/json_values.h"
#include "encoding/tool.h"
#include "vek/str.h"

std::string Base64UrlEncode(const std::string& data) {
    const std::map<std::string, std::string> url_alphabet{{"+", "-"}, {"/", "_"}};
    std::string text = str::Replace(str::base64::Encode(data), url_alphabet);
    const std::size_t padding = text.find('=');
    if (padding != std::string::npos) text.erase(padding);
    return text;
}

std::string GetUrlEncodedSha256(const std::string& data) {
    return Base64UrlEncode(RunFilter("openssl dgst -sha256 -binary", data, "sha_error"));
}

std::string GetEncodedJson(const Json::Value& value) { return Base64UrlEncode(WriteCompact(value)); }

std::string GetEncodedHexString(const std::string& hex) { return Base64UrlEncode(str::hex::Decode(hex)); }
