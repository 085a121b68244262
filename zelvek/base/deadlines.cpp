#include "zelvek/base/deadlines.h"

#include <sys/socket.h>

#include <algorithm>
#include <iterator>

namespace zelvek {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

Deadlines::Deadlines() : thread_([this] { Run(); }) {}

Deadlines::~Deadlines() {
    {
        const std::lock_guard lock(mutex_);
        end_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void Deadlines::Set(int connection, milliseconds limit) {
    {
        const std::lock_guard lock(mutex_);
        ends_[connection] = steady_clock::now() + std::min(limit, longest_);
    }
    changed_.notify_all();
}

void Deadlines::Lift(int connection) {
    const std::lock_guard lock(mutex_);
    ends_.erase(connection);
}

void Deadlines::Shorten(milliseconds limit) {
    {
        const std::lock_guard lock(mutex_);
        longest_ = limit;
        const Moment latest = steady_clock::now() + limit;
        for (auto& [connection, end] : ends_) end = std::min(end, latest);
    }
    changed_.notify_all();
}

void Deadlines::Run() {
    std::unique_lock lock(mutex_);
    while (!end_) changed_.wait_until(lock, EndLate(steady_clock::now()));
}

/// Returns when the next one's time is up.
Deadlines::Moment Deadlines::EndLate(Moment now) {
    Moment next = now + std::chrono::hours{1};
    for (auto each = ends_.begin(); each != ends_.end();) {
        if (each->second <= now) {
            ::shutdown(each->first, SHUT_RDWR);
            each = ends_.erase(each);
        } else {
            next = std::min(next, each->second);
            ++each;
        }
    }
    return next;
}

}  // namespace zelvek
