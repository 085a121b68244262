#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace zelvek {

/// Does `work` on a thread of its own, at once and then again after each interval. What it throws is logged.
class Periodic {
public:
    Periodic(std::string name, std::chrono::milliseconds interval, std::function<void()> work);

    /// Waits for the work under way.
    ~Periodic();
    Periodic(const Periodic&) = delete;
    Periodic& operator=(const Periodic&) = delete;

private:
    void Run();

    std::string name_;
    std::chrono::milliseconds interval_;
    std::function<void()> work_;
    std::mutex mutex_;
    std::condition_variable ending_;
    bool end_ = false;
    std::thread thread_;
};

}  // namespace zelvek
