#include "zelvek/base/plugin_run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zelvek/base/error.h"
#include "zelvek/base/exit_status.h"

namespace zelvek {

namespace {

constexpr int kUnknownStatus = 255;

constexpr std::string_view kLogLevel = "VEK_LOG_LEVEL=";

/// This process's environment with another log level.
class Environment {
public:
    explicit Environment(int log_level) : level_(std::string(kLogLevel) + std::to_string(log_level)) {
        for (char** entry = environ; *entry != nullptr; ++entry) {
            if (!std::string_view(*entry).starts_with(kLogLevel)) entries_.push_back(*entry);
        }
        entries_.push_back(level_.data());
        entries_.push_back(nullptr);
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

    char* const* entries() const { return entries_.data(); }

private:
    std::string level_;
    std::vector<char*> entries_;
};

int Spawn(const std::filesystem::path& plugin, int job, int log_level, pid_t& pid) {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);

    // The service blocks and ignores signals; the plug-in begins with all of them as they are by default.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t signals;
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

    std::string name = plugin.string();
    std::string id = std::to_string(job);
    const Environment environment(log_level);
    char* const arguments[] = {name.data(), id.data(), nullptr};
    const int error =
        posix_spawn(&pid, plugin.c_str(), &files, &attributes, arguments, environment.entries());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return error;
}

}  // namespace

std::filesystem::path PluginBesideProgram() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "ambrin";
}

PluginRun::PluginRun(const std::filesystem::path& plugin, int job, int log_level) {
    if (const int error = Spawn(plugin, job, log_level, pid_); error != 0) {
        throw IoError("starting", plugin, error);
    }
    // glibc 2.36 declares pidfd_open for C alone.
    ending_ = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
}

PluginRun::PluginRun(PluginRun&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), ending_(std::move(other.ending_)), status_(other.status_) {}

PluginRun::~PluginRun() {
    if (pid_ <= 0 || status_) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
}

std::optional<int> PluginRun::Status() {
    if (status_) return status_;
    int status = 0;
    const pid_t ended = ::waitpid(pid_, &status, WNOHANG);
    if (ended == 0 || (ended < 0 && errno == EINTR)) return std::nullopt;
    // What somebody else has waited for has no status left.
    status_ = ended < 0 ? kUnknownStatus : ExitStatus(status);
    return status_;
}

void PluginRun::Terminate() const {
    if (!status_) ::kill(pid_, SIGTERM);
}

}  // namespace zelvek
