#include "patience.h"

#include <algorithm>
#include <thread>

#include "interrupt.h"

namespace vek_client {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::chrono::seconds kShort{5};
constexpr std::chrono::minutes kLong{5};
constexpr milliseconds kLongestShortPause{50};
constexpr std::chrono::seconds kLongestLongPause{5};

bool StoresSomething(const std::string& query) {
    const std::string word = "sok=ok";
    for (auto at = query.find(word); at != std::string::npos; at = query.find(word, at + 1)) {
        const auto end = at + word.size();
        const bool begins = at == 0 || query[at - 1] == '&';
        if (begins && (end == query.size() || query[end] == '&')) return true;
    }
    return false;
}

}  // namespace

Patience::Patience(const std::string& query) : end_(steady_clock::now()) {
    const bool stores = StoresSomething(query);
    end_ += stores ? std::chrono::duration_cast<milliseconds>(kLong) : milliseconds(kShort);
    longest_pause_ = stores ? milliseconds(kLongestLongPause) : kLongestShortPause;
}

bool Patience::Pause() {
    const auto now = steady_clock::now();
    if (now >= end_ || vek_interrupt::IsRepeated()) return false;
    // Not the interruptible sleep: a run that is being ended still has its record to write back.
    std::this_thread::sleep_for(std::min<steady_clock::duration>(pause_, end_ - now));
    pause_ = std::min(2 * pause_, longest_pause_);
    return true;
}

}  // namespace vek_client
