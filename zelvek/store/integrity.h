#pragma once

#include <filesystem>
#include <string>

namespace zelvek {

/// Reads a whole database, without holding up a service that uses it, and says in one line what is damaged;
/// empty where nothing is. Errors: Error of code kIo where it cannot be read, and the engine's.
std::string DamageOf(const std::filesystem::path& database);

}  // namespace zelvek
