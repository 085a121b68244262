#include "zelvek/service/use_directory.h"

#include <unistd.h>

#include <cerrno>

#include "zelvek/base/error.h"
#include "zelvek/base/folder.h"

namespace zelvek {

void UseDirectory(const std::string& purpose, const std::filesystem::path& directory) try {
    MakeFolders(directory, 0755);
    if (::access(directory.c_str(), W_OK | X_OK) != 0) throw IoError("cannot write to", directory, errno);
} catch (const Error& error) {
    throw Error(error.code(), purpose + ": " + error.what());
}

}  // namespace zelvek
