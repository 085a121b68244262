#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace zelvek {

/// Ends connections whose time is up, however busy they look: it shuts them down, so that whoever reads from
/// them or writes to them sees their end. Safe from any thread.
class Deadlines {
public:
    Deadlines();
    ~Deadlines();
    Deadlines(const Deadlines&) = delete;
    Deadlines& operator=(const Deadlines&) = delete;

    /// The connection's time is up after `limit` from now on, whatever was set before.
    void Set(int connection, std::chrono::milliseconds limit);

    /// The connection has no limit any more. Before it is closed this must have happened: its number will be
    /// another's.
    void Lift(int connection);

    /// From now on no connection has longer than this.
    void Shorten(std::chrono::milliseconds limit);

private:
    using Moment = std::chrono::steady_clock::time_point;

    void Run();
    Moment EndLate(Moment now);

    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<int, Moment> ends_;
    std::chrono::milliseconds longest_ = std::chrono::hours{24};
    bool end_ = false;
    std::thread thread_;
};

}  // namespace zelvek
