#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <mutex>

#include "zelvek/base/deadlines.h"

namespace zelvek {

/// The open connections of the service's socket. None is open for long without a query, and no process has so
/// many that others find no place. Safe from any thread.
class Connections {
public:
    static constexpr int kOfOneProcess = 8;

    /// For the whole of a query to arrive, and for the whole of an answer to be taken: both travel inside
    /// this machine.
    static constexpr std::chrono::seconds kLimit{10};

    /// A new one, of that process. One more than the process may have is ended at once, after an answer with
    /// status 503, so that its caller tries again.
    void Open(int connection, pid_t process);

    /// Whether it may ask: those that were ended at once may not.
    bool IsOpen(int connection);

    /// Its query has arrived as a whole: the service takes the time that it needs.
    void Arrived(int connection);

    /// Its answer is there to be taken.
    void Answered(int connection);

    /// It is about to be closed.
    void Closed(int connection);

    /// From now on only queries that have arrived are waited for, others for no longer than this.
    void EndWithin(std::chrono::milliseconds limit) { deadlines_.Shorten(limit); }

    std::size_t Count();

private:
    int CountOf(pid_t process) const;

    std::mutex mutex_;
    std::map<int, pid_t> open_;  // without those that were ended at once
    Deadlines deadlines_;
};

}  // namespace zelvek
