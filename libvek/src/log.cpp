// The log file. A line is one write(2) to a descriptor in append mode, so the lines of processes that write
// at the same time do not mix; a logging library would only stand in between.
#include "vek/log.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <system_error>

#include "vek/date.h"

namespace vek_log {
namespace {

// Plain values without destructors: a static object may write to the log while it is being destroyed.
std::atomic<int> file{-1};
std::atomic<int> enabled{0};
std::atomic<bool> complained{false};

void Complain(const std::string& what) {
    std::cerr << "log: " + what + ": " + std::generic_category().message(errno) + "\n";
}

std::string Directory() {
    const char* directory = std::getenv("VEK_LOG_DIR");
    return directory != nullptr && *directory != '\0' ? directory : "/var/log/vek";
}

std::string LevelName(int level) {
    if (level <= kUse) return "ERROR";
    if (level <= kFailure) return "WARNING";
    return level <= kFunction ? "FUNCTION" : "TRACE";
}

}  // namespace

void Init(const std::string& name, int level) {
    const std::string path = Directory() + "/" + name + ".log";
    const int opened = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
    if (opened < 0) Complain(path);
    const int before = file.exchange(opened);
    if (before >= 0) close(before);
    enabled = opened >= 0 ? level : 0;
}

Module::Module(std::string component, std::string name)
    : component_(std::move(component)), name_(std::move(name)) {}

bool Module::Check(int level) const { return level > 0 && level <= enabled.load(); }

void Module::WriteText(int level, const std::string& text) const {
    if (!Check(level)) return;
    const std::string line = vek_date::DateTime().AsDateTime() + " [" + std::to_string(getpid()) + "] " +
                             LevelName(level) + " " + component_ + "." + name_ + " " + text + "\n";
    errno = ENOSPC;  // what a line that is written in part only means
    const auto written = write(file.load(), line.data(), line.size());
    // A full disk must not end a run; whoever started it is told once.
    if (written != static_cast<ssize_t>(line.size()) && !complained.exchange(true)) Complain("cannot write");
}

}  // namespace vek_log
