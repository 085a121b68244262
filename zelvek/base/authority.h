#pragma once

#include <string>

namespace zelvek {

/// The URL of the directory of the authority that the plug-in was built for (RFC 8555 section 7.1.1).
const std::string& DirectoryUrl();

}  // namespace zelvek
