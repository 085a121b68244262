#pragma once

#include <chrono>
#include <string>

namespace vek_client {

/// How long one query is tried. What a run has done must not be lost because nobody listened, so a query that
/// stores something ("sok=ok" stands among its parameters) is tried for five minutes, with pauses that grow
/// from 50 milliseconds to 5 seconds; any other for five seconds, every 50 milliseconds.
class Patience {
public:
    /// The time counts from here on.
    explicit Patience(const std::string& query);

    /// Waits before a further try; false, without waiting, when there is to be none. A signal that asks the
    /// run to end shortens nothing: the record is still to be written back. When it comes once more, this
    /// ends.
    bool Pause();

private:
    std::chrono::steady_clock::time_point end_;
    std::chrono::milliseconds longest_pause_;
    std::chrono::milliseconds pause_{50};
};

}  // namespace vek_client
