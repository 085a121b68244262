#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

/// What a year's runs meet: an authority with limits and outages.
namespace zelvek::testing {

inline constexpr int kHour = 3600;  // seconds
inline constexpr int kDay = 24 * kHour;
inline constexpr int kOneOf = 50;  // jobs has a name that is never proved
inline constexpr int kDays = 365;
inline const std::string kBeginning = "2031-01-01 00:00:00";

struct Outage {
    int day;    // of the year
    int hours;  // how long it lasts
};

struct Rules {
    std::string name;
    int lifetime;  // of its certificates, days
    std::vector<Outage> outages;
    bool suggests;  // when to renew, to every tenth certificate
    int jobs;
};

/// As many jobs, unless somebody wants another number of them.
inline int JobsOr(int number) {
    const char* wanted = std::getenv("YEAR_JOBS");
    return wanted == nullptr ? number : std::atoi(wanted);
}

/// What stands in a query's form.
inline std::string Encoded(const std::string& value) {
    std::ostringstream text;
    for (const unsigned char c : value) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%%%02X", c);
        text << digits;
    }
    return text.str();
}

/// How often something has happened in each hour, or any other part of time.
class Counts {
public:
    void Add(int part) { most_ = std::max(most_, ++counts_[part]); }
    int most() const { return most_; }
    int sum(int from) const {
        int sum = 0;
        for (const auto& [part, count] : counts_) sum += part >= from ? count : 0;
        return sum;
    }
    int most(int from) const {
        int most = 0;
        for (const auto& [part, count] : counts_) most = part >= from ? std::max(most, count) : most;
        return most;
    }

private:
    std::map<int, int> counts_;
    int most_ = 0;
};

/// What an authority sees and refuses. Its limits are the default authority's.
class Authority {
public:
    explicit Authority(Rules rules) : rules_(std::move(rules)) {}

    const Rules& rules() const { return rules_; }

    bool IsAway(int second) const {
        return std::any_of(rules_.outages.begin(), rules_.outages.end(), [&](const Outage& outage) {
            const int begin = outage.day * kDay;
            return second >= begin && second < begin + outage.hours * kHour;
        });
    }

    void Register() { ++registrations; }

    /// Whether the order is let in.
    bool Order(int second) {
        Forget(orders_, second - 3 * kHour);
        orders_.push_back(second);
        most_orders = std::max(most_orders, static_cast<int>(orders_.size()));
        ++orders;
        return orders_.size() <= 300;
    }

    void Fail(const std::string& name, int second) {
        auto& failures = failures_[name];
        Forget(failures, second - kHour);
        failures.push_back(second);
        most_failures = std::max(most_failures, static_cast<int>(failures.size()));
        ++failed;
    }

    int registrations = 0, orders = 0, failed = 0, most_orders = 0, most_failures = 0;

private:
    static void Forget(std::vector<int>& times, int before) {
        times.erase(times.begin(),
                    std::find_if(times.begin(), times.end(), [&](int time) { return time > before; }));
    }

    Rules rules_;
    std::vector<int> orders_;
    std::map<std::string, std::vector<int>> failures_;
};

}  // namespace zelvek::testing
