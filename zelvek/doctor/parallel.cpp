#include "zelvek/doctor/parallel.h"

#include <atomic>
#include <exception>
#include <thread>

namespace zelvek::doctor {

namespace {

constexpr std::size_t kAtOnce = 16;

Checks LookAt(const std::string& name, const std::function<Checks(const std::string&)>& look) try {
    return look(name);
} catch (const std::exception& error) {
    return {Wrong(name, error.what(), "")};
}

}  // namespace

Checks InParallel(const std::vector<std::string>& names,
                  const std::function<Checks(const std::string&)>& look) {
    std::vector<Checks> found(names.size());
    std::atomic<std::size_t> next = 0;
    const auto work = [&] {
        for (std::size_t i = next++; i < names.size(); i = next++) found[i] = LookAt(names[i], look);
    };
    {
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < kAtOnce && i < names.size(); ++i) threads.emplace_back(work);
    }
    Checks all;
    for (Checks& each : found) all.insert(all.end(), each.begin(), each.end());
    return all;
}

}  // namespace zelvek::doctor
