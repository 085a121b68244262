#pragma once

#include <csignal>
#include <ctime>

namespace vek_proc {

/// Keeps writes of this thread to a closed pipe or socket from ending a process that does not ignore SIGPIPE,
/// without touching the process's own handling of it.
class SigpipeBlocked {
public:
    SigpipeBlocked() {
        sigset_t pending;
        sigpending(&pending);
        was_pending_ = sigismember(&pending, SIGPIPE) == 1;
        sigemptyset(&sigpipe_);
        sigaddset(&sigpipe_, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &sigpipe_, &before_);
    }

    ~SigpipeBlocked() {
        const timespec no_wait{};
        while (!was_pending_ && sigtimedwait(&sigpipe_, nullptr, &no_wait) > 0) {
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

    SigpipeBlocked(const SigpipeBlocked&) = delete;
    SigpipeBlocked& operator=(const SigpipeBlocked&) = delete;

private:
    sigset_t sigpipe_{};
    sigset_t before_{};
    bool was_pending_ = false;
};

}  // namespace vek_proc
