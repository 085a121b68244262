// The log file. A line is one write(2) to a descriptor in append mode, so the lines of processes that write
// at the same time do not mix; a logging library would only stand in between.
#include "vek/log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <mutex>
#include <system_error>

#include "vek/date.h"

namespace vek_log {
namespace {

// Plain values without destructors: a static object may write to the log while it is being destroyed.
std::mutex writing;  // over `file` and `path`
int file = -1;
std::array<char, PATH_MAX> path{};
std::atomic<int> enabled{0};
std::atomic<bool> complained{false};

void Complain(const std::string& what) {
    std::cerr << "log: " + what + ": " + std::generic_category().message(errno) + "\n";
}

std::string Directory() {
    const char* directory = std::getenv("VEK_LOG_DIR");
    return directory != nullptr && *directory != '\0' ? directory : "/var/log/vek";
}

/// What whoever started the program wants at most; `level` where that is more, or no number.
int LevelWanted(int level) {
    const char* text = std::getenv("VEK_LOG_LEVEL");
    if (text == nullptr || *text == '\0') return level;
    int wanted = 0;
    const char* end = text + std::strlen(text);
    const auto read = std::from_chars(text, end, wanted);
    return read.ec == std::errc() && read.ptr == end ? std::min(wanted, level) : level;
}

int Open() { return open(path.data(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640); }

// Whoever rotates logs renames the file: the lines that follow belong into a new one. Where none can be made,
// the old one goes on.
void FollowRenames() {
    struct stat ours {};
    struct stat there {};
    const bool same = fstat(file, &ours) == 0 && stat(path.data(), &there) == 0 &&
                      ours.st_ino == there.st_ino && ours.st_dev == there.st_dev;
    const int fresh = same ? -1 : Open();
    if (fresh < 0) return;
    close(file);
    file = fresh;
}

std::string LevelName(int level) {
    if (level <= kUse) return "ERROR";
    if (level <= kFailure) return "WARNING";
    return level <= kFunction ? "FUNCTION" : "TRACE";
}

}  // namespace

void Init(const std::string& name, int level) {
    const std::string wanted = Directory() + "/" + name + ".log";
    const std::lock_guard lock(writing);
    if (file >= 0) close(file);
    file = -1;
    enabled = 0;
    errno = ENAMETOOLONG;
    if (wanted.size() < path.size()) {
        path = {};
        wanted.copy(path.data(), wanted.size());
        file = Open();
    }
    if (file < 0) return Complain(wanted);
    enabled = LevelWanted(level);
}

Module::Module(std::string component, std::string name)
    : component_(std::move(component)), name_(std::move(name)) {}

bool Module::Check(int level) const { return level > 0 && level <= enabled.load(); }

void Module::WriteText(int level, const std::string& text) const {
    if (!Check(level)) return;
    const std::string line = vek_date::DateTime().AsDateTime() + " [" + std::to_string(getpid()) + "] " +
                             LevelName(level) + " " + component_ + "." + name_ + " " + text + "\n";
    const std::lock_guard lock(writing);
    FollowRenames();
    errno = ENOSPC;  // what a line that is written in part only means
    const auto written = write(file, line.data(), line.size());
    // A full disk must not end a run; whoever started it is told once.
    if (written != static_cast<ssize_t>(line.size()) && !complained.exchange(true)) Complain("cannot write");
}

}  // namespace vek_log
