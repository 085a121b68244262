#pragma once

#include <string>

/// Random texts that open something, and what is kept of them.
namespace zelvek::secrets {

/// 32 bytes of the operating system's random source, as 64 hexadecimal digits. Errors: Error of code
/// kInternal.
std::string Fresh();

/// SHA-256 in hexadecimal digits: what is kept instead of a secret.
std::string HashOf(const std::string& secret);

/// HMAC-SHA-256 of the text, in hexadecimal digits.
std::string Mac(const std::string& key, const std::string& text);

/// Whether two texts are the same, in a time that says nothing of where they differ.
bool Same(const std::string& one, const std::string& other);

}  // namespace zelvek::secrets
