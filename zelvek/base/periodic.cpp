#include "zelvek/base/periodic.h"

#include <exception>
#include <utility>

#include "zelvek/base/log.h"

namespace zelvek {

Periodic::Periodic(std::string name, std::chrono::milliseconds interval, std::function<void()> work)
    : name_(std::move(name)), interval_(interval), work_(std::move(work)), thread_([this] { Run(); }) {}

Periodic::~Periodic() {
    {
        const std::lock_guard lock(mutex_);
        end_ = true;
    }
    ending_.notify_all();
    thread_.join();
}

void Periodic::Run() {
    std::unique_lock lock(mutex_);
    while (!end_) {
        lock.unlock();
        try {
            work_();
        } catch (const std::exception& error) {
            Log(name_ + ": " + error.what());
        }
        lock.lock();
        ending_.wait_for(lock, interval_, [this] { return end_; });
    }
}

}  // namespace zelvek
