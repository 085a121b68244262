#pragma once

#include <deque>
#include <optional>
#include <utility>

#include "double/vek_double.h"
#include "vek/date.h"

/// What the doubled functions see of the test's world: its scripts, and the calls made so far.
namespace vek_double {

/// The answers of one kind of call.
template <class Answer>
class Script {
public:
    using Responder = std::function<Answer(const std::string&)>;

    void Queue(std::string pattern, Responder answer) {
        queue_.push_back({std::move(pattern), std::move(answer)});
    }
    void Stand(std::string pattern, Responder answer) {
        standing_.push_front({std::move(pattern), std::move(answer)});
    }
    const std::string* Next() const { return queue_.empty() ? nullptr : &queue_.front().pattern; }

    /// The answer for this call, taken off the queue; nothing when there is none.
    std::optional<Responder> Take(const std::string& asked) {
        for (const Entry& entry : standing_)
            if (Matches(entry.pattern, asked)) return entry.answer;
        if (queue_.empty() || !Matches(queue_.front().pattern, asked)) return std::nullopt;
        Responder answer = std::move(queue_.front().answer);
        queue_.pop_front();
        return answer;
    }

private:
    struct Entry {
        std::string pattern;
        Responder answer;
    };

    static bool Matches(const std::string& pattern, const std::string& asked) {
        if (!pattern.ends_with('*')) return pattern == asked;
        return asked.starts_with(std::string_view(pattern).substr(0, pattern.size() - 1));
    }

    std::deque<Entry> queue_;
    std::deque<Entry> standing_;
};

struct Injected {
    std::string kind;  // empty: any outside step
    int n;
    Failure failure;
};

struct World::State {
    Script<std::string> panel;
    Script<HttpAnswer> http;
    Script<ChildAnswer> child;
    std::vector<Call> calls;
    std::vector<Injected> injected;
    vek_date::DateTime now{"2030-06-01 12:00:00"};
    std::uint64_t milliseconds = 0;  // of the second under way
    int steps = 0;
    int keys = 0;
    int decodings = 0;
    int keys_held = 0;
    int log_level = 9;         // the test's limit
    int opened_log_level = 9;  // vek_log::Init's
    int interrupted = 0;       // the signal that ended the run's waits
    bool unasked_allowed = false;
};

/// The running test's world; null outside of tests.
World::State* Current();

/// Writes a call down; nothing without a world.
void Note(const std::string& kind, const std::string& text, const std::string& detail = "");

/// Writes a call down and lets it fail where the test wants that.
void Enter(const std::string& kind, const std::string& text, const std::string& detail = "");

/// Throws vek_proc::Interrupted once the run has been told to end.
void ThrowIfInterrupted();

/// The script's answer for a call; without one the test fails by the call's text, and nothing is returned.
template <class Answer>
std::optional<std::function<Answer(const std::string&)>> TakeAnswer(Script<Answer> World::State::*script,
                                                                    const std::string& kind,
                                                                    const std::string& asked);

}  // namespace vek_double
