#pragma once

#include <filesystem>

namespace zelvek {

/// The directory of the local services' sockets: VEK_RUN_DIR, or /run/vek.
std::filesystem::path RunDirectory();

}  // namespace zelvek
