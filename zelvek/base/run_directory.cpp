#include "zelvek/base/run_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

#include "zelvek/base/error.h"
#include "zelvek/base/umask.h"

namespace zelvek {

namespace fs = std::filesystem;

namespace {

void MakeMissing(const fs::path& directory) {
    const Umask usual(022);
    std::error_code error;
    if (directory.has_parent_path()) fs::create_directories(directory.parent_path(), error);
    if (::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) {
        throw IoError("making the run directory", directory, errno);
    }
}

/// What is wrong with it; empty for nothing.
std::string FaultOf(const struct stat& found) {
    if (S_ISLNK(found.st_mode)) return "is a symbolic link";
    if (!S_ISDIR(found.st_mode)) return "is no directory";
    if (found.st_uid != ::geteuid()) return "belongs to user id " + std::to_string(found.st_uid);
    if ((found.st_mode & (S_IWGRP | S_IWOTH)) != 0) return "can be written by its group or by others";
    return "";
}

}  // namespace

fs::path RunDirectory() {
    const char* directory = std::getenv("VEK_RUN_DIR");
    const fs::path named = directory != nullptr && *directory != '\0' ? directory : "/run/vek";
    // With a "/" or "/." at its end a link would be taken for the directory that it leads to.
    const fs::path path = named.lexically_normal();
    return path.has_filename() || !path.has_relative_path() ? path : path.parent_path();
}

void PrepareRunDirectory(const fs::path& directory) {
    MakeMissing(directory);
    struct stat found {};
    if (::lstat(directory.c_str(), &found) != 0) throw IoError("looking at", directory, errno);
    const std::string fault = FaultOf(found);
    if (fault.empty()) return;
    throw Error(Code::kIo, "the run directory " + directory.string() + " " + fault +
                               "; wanted is a directory of user id " + std::to_string(::geteuid()) +
                               " that nobody else can write");
}

}  // namespace zelvek
