#pragma once

#include <sys/types.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace zelvek::cli {

/// Follows a plug-in's log file, in which the runs of several processes stand, and picks one process's lines.
class LogFollower {
public:
    /// From the file's present end on; the file need not be there yet.
    LogFollower(std::filesystem::path file, std::uintmax_t begin);

    /// What the process has written since the last call, in whole lines: an entry's further lines belong to
    /// it.
    std::string Next(pid_t pid);

    /// Where a file ends now; 0 for none.
    static std::uintmax_t EndOf(const std::filesystem::path& file);

private:
    std::filesystem::path file_;
    std::uintmax_t position_;
    std::string rest_;   // of a line that is being written
    bool ours_ = false;  // whether the last entry is the process's
};

}  // namespace zelvek::cli
