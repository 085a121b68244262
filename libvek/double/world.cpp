#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include "double/state.h"
#include "vek/err.h"
#include "vek/proc.h"

namespace vek_double {

namespace {

World::State* current = nullptr;

void FailUnasked(const std::string& kind, const std::string* pattern) {
    if (pattern) ADD_FAILURE() << "scripted but never asked: " << kind << ": " << *pattern;
}

/// What the test wants to happen at this call, if anything.
std::optional<Failure> InjectedAt(World::State& state, const std::string& kind) {
    const bool step = kind == "panel" || kind == "http" || kind == "child";
    if (step) ++state.steps;
    const auto same_kind = [&](const Call& call) { return call.kind == kind; };
    const auto count = static_cast<int>(std::count_if(state.calls.begin(), state.calls.end(), same_kind));
    for (const Injected& injected : state.injected) {
        const bool hit = injected.kind.empty() ? step && injected.n == state.steps
                                               : injected.kind == kind && injected.n == count;
        if (hit) return injected.failure;
    }
    return std::nullopt;
}

}  // namespace

World::World() : state_(std::make_unique<State>()) {
    EXPECT_EQ(current, nullptr) << "one world at a time";
    current = state_.get();
}

World::~World() {
    current = nullptr;
    if (state_->unasked_allowed) return;
    FailUnasked("panel", state_->panel.Next());
    FailUnasked("http", state_->http.Next());
    FailUnasked("child", state_->child.Next());
}

void World::AnswerPanel(const std::string& pattern, const std::string& xml) {
    state_->panel.Queue(pattern, [xml](const std::string&) { return xml; });
}

void World::FailPanel(const std::string& pattern, const std::string& type, const std::string& message) {
    state_->panel.Queue(
        pattern, [=](const std::string&) -> std::string { throw vek_err::Error::Reported(type, message); });
}

void World::AnswerHttp(const std::string& pattern, const HttpAnswer& answer) {
    state_->http.Queue(pattern, [answer](const std::string&) { return answer; });
}

void World::FailHttp(const std::string& pattern, const std::string& what) {
    state_->http.Queue(
        pattern, [what](const std::string&) -> HttpAnswer { throw vek_err::Error::Reported("http", what); });
}

void World::AnswerChild(const std::string& pattern, const ChildAnswer& answer) {
    state_->child.Queue(pattern, [answer](const std::string&) { return answer; });
}

void World::AlwaysPanel(const std::string& pattern, std::function<std::string(const std::string&)> answer) {
    state_->panel.Stand(pattern, std::move(answer));
}

void World::AlwaysHttp(const std::string& pattern, std::function<HttpAnswer(const std::string&)> answer) {
    state_->http.Stand(pattern, std::move(answer));
}

void World::AlwaysChild(const std::string& pattern, std::function<ChildAnswer(const std::string&)> answer) {
    state_->child.Stand(pattern, std::move(answer));
}

const std::vector<Call>& World::calls() const { return state_->calls; }

std::vector<std::string> World::Lines(std::initializer_list<std::string_view> kinds) const {
    std::vector<std::string> lines;
    for (const Call& call : state_->calls) {
        const bool wanted =
            kinds.size() == 0 || std::find(kinds.begin(), kinds.end(), call.kind) != kinds.end();
        if (wanted) lines.push_back(call.Line());
    }
    return lines;
}

void World::ForgetCalls() { state_->calls.clear(); }
void World::SetNow(const std::string& date_time) { state_->now = vek_date::DateTime(date_time); }
void World::FailAtStep(int n, Failure failure) { state_->injected.push_back({"", n, failure}); }
void World::FailAt(const std::string& kind, int n, Failure failure) {
    state_->injected.push_back({kind, n, failure});
}
void World::ForgetFailures() { state_->injected.clear(); }
int World::steps() const { return state_->steps; }
int World::decodings() const { return state_->decodings; }
int World::keys_held() const { return state_->keys_held; }
void World::AllowUnaskedAnswers() { state_->unasked_allowed = true; }
void World::SetLogLevel(int level) { state_->log_level = level; }
void World::CloseLog() { state_->opened_log_level = 0; }

std::string Head(std::initializer_list<std::pair<std::string, std::string>> lines) {
    std::string head;
    for (const auto& [name, value] : lines) head.append(name).append(": ").append(value).append("\r\n");
    return head;
}

World::State* Current() { return current; }

void Note(const std::string& kind, const std::string& text, const std::string& detail) {
    if (current) current->calls.push_back({kind, text, detail});
}

void Enter(const std::string& kind, const std::string& text, const std::string& detail) {
    if (!current) return;
    Note(kind, text, detail);
    const std::optional<Failure> failure = InjectedAt(*current, kind);
    if (!failure) return;
    current->unasked_allowed = true;
    if (*failure == Failure::kError)
        throw vek_err::Error("double", "connect", "the test lets this call fail");
    current->interrupted = SIGTERM;
}

void ThrowIfInterrupted() {
    if (current && current->interrupted != 0) throw vek_proc::Interrupted{current->interrupted};
}

template <class Answer>
std::optional<std::function<Answer(const std::string&)>> TakeAnswer(Script<Answer> World::State::*script,
                                                                    const std::string& kind,
                                                                    const std::string& asked) {
    if (!current) return std::nullopt;
    auto answer = (current->*script).Take(asked);
    if (answer) return answer;
    const std::string* next = (current->*script).Next();
    ADD_FAILURE() << "no answer scripted for " << kind << ": " << asked
                  << (next ? "\nthe script goes on with " + *next : std::string());
    return std::nullopt;
}

template std::optional<std::function<std::string(const std::string&)>> TakeAnswer(
    Script<std::string> World::State::*, const std::string&, const std::string&);
template std::optional<std::function<HttpAnswer(const std::string&)>> TakeAnswer(
    Script<HttpAnswer> World::State::*, const std::string&, const std::string&);
template std::optional<std::function<ChildAnswer(const std::string&)>> TakeAnswer(
    Script<ChildAnswer> World::State::*, const std::string&, const std::string&);

}  // namespace vek_double
