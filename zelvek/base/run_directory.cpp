#include "zelvek/base/run_directory.h"

#include <cstdlib>

namespace zelvek {

std::filesystem::path RunDirectory() {
    const char* directory = std::getenv("VEK_RUN_DIR");
    return directory != nullptr && *directory != '\0' ? directory : "/run/vek";
}

}  // namespace zelvek
