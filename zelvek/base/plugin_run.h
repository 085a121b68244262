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
    /// Errors: Error when it cannot be started.
    PluginRun(const std::filesystem::path& plugin, int job);

    /// Kills and reaps a child that is still running.
    ~PluginRun();
    PluginRun(PluginRun&& other) noexcept;
    PluginRun(const PluginRun&) = delete;
    PluginRun& operator=(const PluginRun&) = delete;
    PluginRun& operator=(PluginRun&&) = delete;

    pid_t pid() const { return pid_; }

    /// Readable when it has ended, for poll(2); -1 on a kernel without such descriptors.
    int ending() const { return ending_.get(); }

    /// Its exit status once it has ended (128 + the signal's number for one ended by a signal), at once.
    std::optional<int> Status();

    /// Asks it to end in order.
    void Terminate() const;

private:
    pid_t pid_ = -1;
    Descriptor ending_;
    std::optional<int> status_;
};

}  // namespace zelvek
