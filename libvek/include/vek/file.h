#pragma once

#include <string>

namespace vek_file {

/// The file-name part of a path: what stands after the last "/".
std::string Name(const std::string& path);

}  // namespace vek_file
