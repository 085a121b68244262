#pragma once

#include <string>

namespace zelvek {

/// Whether a text is an IPv4 or IPv6 address, without port, brackets or zone.
bool IsAddress(const std::string& text);

/// Whether an address means the same host to everybody: none of this machine, of a private network or of a
/// group of hosts (RFC 6890), in IPv6 written as IPv4 either.
bool IsPublicAddress(const std::string& text);

}  // namespace zelvek
