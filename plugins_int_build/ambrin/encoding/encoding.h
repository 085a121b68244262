#pragma once

#include <json/json.h>

#include <string>

/// The encodings of the ACME protocol: everything it carries is base64url without padding (RFC 7515 section
/// 2).

/// Any bytes as base64url text.
std::string Base64UrlEncode(const std::string& data);

/// base64url of the SHA-256 digest: 43 characters. One run of `openssl`.
/// Errors: vek_err::Error("ambrin", "sha_error", output).
std::string GetUrlEncodedSha256(const std::string& data);

/// base64url of the compact JSON text, its final line feed included: signatures cover exactly these bytes.
std::string GetEncodedJson(const Json::Value& value);

/// base64url of the bytes that plain hexadecimal digits stand for.
std::string GetEncodedHexString(const std::string& hex);
