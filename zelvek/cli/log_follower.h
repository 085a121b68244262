#pragma once

#include <sys/types.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace zelvek::cli {

/// Follows a plug-in's log file, in which the runs of several processes stand, and picks one process's lines.
class LogFollower {
public:
    /// Reads the file from the byte `begin` on; it need not be there yet.
    LogFollower(std::filesystem::path file, std::uintmax_t begin);

    /// The whole lines that the process has written since the last call. An entry may have several.
    std::string Next(pid_t pid);

    /// The size that a file has now; 0 where there is none.
    static std::uintmax_t EndOf(const std::filesystem::path& file);

private:
    std::filesystem::path file_;
    std::uintmax_t position_;
    std::string rest_;   // the beginning of a line that is not complete
    bool ours_ = false;  // whether the process has written the last entry
};

}  // namespace zelvek::cli
