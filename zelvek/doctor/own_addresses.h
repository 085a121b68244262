#pragma once

#include <string>

namespace zelvek::doctor {

/// Whether an address, as a text, is one of this machine's interfaces.
bool IsOwnAddress(const std::string& address);

}  // namespace zelvek::doctor
