#pragma once

#include <filesystem>
#include <string>

namespace zelvek {

/// Makes the directory where it is missing. Everybody may read it, web servers among them. `purpose` begins
/// what is said of errors: Error, where it cannot be made or written to.
void UseDirectory(const std::string& purpose, const std::filesystem::path& directory);

}  // namespace zelvek
