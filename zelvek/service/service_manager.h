#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include "zelvek/base/descriptor.h"

namespace zelvek {

/// Who has started the service, where that program speaks systemd's protocols (sd_notify(3),
/// sd_listen_fds(3), sd_watchdog_enabled(3)). Elsewhere it has handed over nothing, and is told nothing.
class ServiceManager {
public:
    /// Takes what the environment says out of it, so that no child process takes it for its own. While there
    /// is one thread. Errors: Error for more than one socket.
    ServiceManager();

    /// The listening socket that was handed over; an empty one where there is none.
    Descriptor TakeSocket() { return std::move(socket_); }

    /// How often it wants to hear that all is well; nothing where it does not.
    std::optional<std::chrono::milliseconds> watchdog() const { return watchdog_; }

    void TellReady() const { Tell("READY=1"); }

    /// The service reads its options again; that is over with the next `TellReady`, which says what came of
    /// it in one line.
    void TellReloading() const;
    void TellReady(const std::string& outcome) const;
    void TellAlive() const { Tell("WATCHDOG=1"); }
    void TellEnding() const { Tell("STOPPING=1"); }

private:
    /// What cannot be told is lost: the service does its work all the same.
    void Tell(const std::string& state) const;

    std::string address_;
    std::optional<std::chrono::milliseconds> watchdog_;
    Descriptor socket_;
};

}  // namespace zelvek
