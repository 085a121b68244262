#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "zelvek/base/deadlines.h"
#include "zelvek/service/caller.h"

namespace zelvek {

/// The open connections of the service's socket. None is open for long without a query, and no process has so
/// many that others find no place; other users than the service's, all together, neither. Safe from any
/// thread.
class Connections {
public:
    static constexpr int kOfOneProcess = 8;
    static constexpr int kOfOtherUsers = 64;

    /// For the whole of a query to arrive, and for the whole of an answer to be taken: both travel inside
    /// this machine.
    static constexpr std::chrono::seconds kLimit{10};

    /// A new one, of that caller. One more than there may be is ended at once, after an answer with status
    /// 503, so that its caller tries again.
    void Open(int connection, const Caller& caller);

    /// Who asks there; nobody for one that was ended at once.
    std::optional<Caller> CallerAt(int connection);

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
    /// Why one more is too many; empty where it is not.
    std::string Excess(const Caller& caller) const;

    std::mutex mutex_;
    std::map<int, Caller> open_;  // without those that were ended at once
    Deadlines deadlines_;
};

}  // namespace zelvek
