#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>

#include "zelvek/base/descriptor.h"

namespace zelvek {

/// The plug-in that is installed beside this program.
std::filesystem::path PluginBesideProgram();

/// One run of the plug-in for one job, a child of this process with its environment and output.
class PluginRun {
public:
    /// Its log has levels up to `log_level` (vek/log.h). Errors: Error when it cannot be started.
    PluginRun(const std::filesystem::path& plugin, int job, int log_level);

    /// Kills and reaps a child that is still running.
    ~PluginRun();
    PluginRun(PluginRun&& other) noexcept;
    PluginRun(const PluginRun&) = delete;
    PluginRun& operator=(const PluginRun&) = delete;
    PluginRun& operator=(PluginRun&&) = delete;

    pid_t pid() const { return pid_; }

    /// A descriptor for poll(2), readable when the run has ended; -1 on a kernel without such descriptors.
    int ending() const { return ending_.get(); }

    /// Without waiting: the exit status, 128 + its number for an end by a signal; nothing while it runs.
    std::optional<int> Status();

    /// Sends SIGTERM, on which a plug-in writes its job's record back and ends.
    void Terminate() const;

private:
    pid_t pid_ = -1;
    Descriptor ending_;
    std::optional<int> status_;
};

}  // namespace zelvek
