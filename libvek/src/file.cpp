#include "vek/file.h"

namespace vek_file {

std::string Name(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace vek_file
