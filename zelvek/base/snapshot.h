#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace zelvek {

/// Options that one thread replaces while others work by them. What is given out never changes: who takes it
/// once goes by the same options until the end of a piece of work.
template <class Options>
class Snapshot {
public:
    Snapshot(Options options = {}) : options_(std::make_shared<const Options>(std::move(options))) {}

    std::shared_ptr<const Options> Get() const {
        const std::lock_guard lock(mutex_);
        return options_;
    }

    void Set(Options options) {
        auto replaced = std::make_shared<const Options>(std::move(options));
        const std::lock_guard lock(mutex_);
        options_.swap(replaced);
    }

private:
    mutable std::mutex mutex_;
    std::shared_ptr<const Options> options_;
};

}  // namespace zelvek
