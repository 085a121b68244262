#include "vek/proc.h"

#include <algorithm>
#include <limits>
#include <sstream>

#include "double/state.h"

namespace vek_proc {

void Sleep(std::uint64_t milliseconds) {
    vek_double::Enter("sleep", std::to_string(milliseconds));
    vek_double::ThrowIfInterrupted();
    vek_double::World::State* world = vek_double::Current();
    if (!world) return;
    constexpr std::uint64_t kDay = 86'400'000;
    const std::uint64_t rest = milliseconds % kDay + world->milliseconds;
    const std::uint64_t days = std::min<std::uint64_t>(milliseconds / kDay, std::numeric_limits<int>::max());
    world->now.AddDays(static_cast<int>(days)).AddSeconds(static_cast<int>(rest / 1000));
    world->milliseconds = rest % 1000;
}

std::string Escape(const std::string& argument) {
    std::string quoted = "'";
    for (const char c : argument.substr(0, argument.find('\0')))
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

namespace {

std::string CommandOf(const Program& program) {
    std::string command = program.path;
    for (const std::string& argument : program.arguments) command += " " + Escape(argument);
    return command;
}

}  // namespace

struct Execute::Child {
    std::string command;
    int mode;
    std::ostringstream in;
    std::function<vek_double::ChildAnswer(const std::string&)> answer;
    std::size_t kept = std::numeric_limits<std::size_t>::max();
    bool fed = false;
    bool ended = false;
    vek_double::ChildAnswer result;

    void Feed() {
        if (!fed && (mode & kPipeIn) != 0) vek_double::Note("input", in.str());
        fed = true;
    }

    void Wait() {
        Feed();
        vek_double::ThrowIfInterrupted();
        if (!ended && answer) result = answer((mode & kPipeIn) != 0 ? in.str() : "");
        ended = true;
    }
};

Execute::Execute(const std::string& command, int mode) : child_(std::make_unique<Child>()) {
    vek_double::Enter("child", command, std::to_string(mode));
    child_->command = command;
    child_->mode = mode;
    // A child that starts when the run has been told to end is never waited for, so it needs no answer.
    if (vek_double::Current() && vek_double::Current()->interrupted != 0) return;
    if (auto answer = vek_double::TakeAnswer(&vek_double::World::State::child, "child", command))
        child_->answer = *answer;
}

// A program is known by its path and words, as one would give them to the shell.
Execute::Execute(const Program& program, int mode) : Execute(CommandOf(program), mode) {}

Execute::~Execute() = default;
void Execute::LimitTime(std::chrono::milliseconds limit) {
    vek_double::Note("limit", std::to_string(limit.count()));
}
void Execute::KeepLast(std::size_t bytes) { child_->kept = bytes; }
std::ostream& Execute::In() { return child_->in; }
void Execute::CloseIn() { child_->Feed(); }

int Execute::Result() {
    child_->Wait();
    return child_->result.status;
}

std::string Execute::Str() {
    child_->Wait();
    if ((child_->mode & kPipeOut) == 0) return "";
    const std::string& output = child_->result.output;
    return output.substr(output.size() - std::min(output.size(), child_->kept));
}

}  // namespace vek_proc
