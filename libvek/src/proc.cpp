#include "vek/proc.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <optional>
#include <sstream>

#include "interrupt.h"
#include "sigpipe.h"
#include "spawn.h"
#include "vek/err.h"
#include "vek/str.h"

namespace vek_proc {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t kChunk = 65536;  // what a pipe holds
constexpr milliseconds kLongestPoll{3'600'000};
constexpr milliseconds kTick{
    20};  // between looks at a child on kernels that cannot wake us (pidfd_open: Linux 5.3)

void SetNonBlocking(const Fd& fd) {
    if (fd) fcntl(fd.get(), F_SETFL, fcntl(fd.get(), F_GETFL) | O_NONBLOCK);
}

bool WouldBlock() { return errno == EAGAIN || errno == EINTR; }

int StatusOf(int wait_status) {
    return WIFSIGNALED(wait_status) ? 128 + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

}  // namespace

std::string Escape(const std::string& argument) {
    // Inside single quotes only the quote itself is special: it ends them, stands escaped, and begins new
    // ones.
    return "'" + str::Replace(argument.substr(0, argument.find('\0')), "'", "'\\''") + "'";
}

struct Execute::Child {
    /// `what` is a command or a program.
    template <class What>
    Child(const What& what, int mode);

    void Run();
    void End();
    void Poll();
    void Write();
    void Read(std::size_t most);
    void Cut();
    bool Reap(int options);
    milliseconds Patience();

    steady_clock::time_point start = steady_clock::now();
    std::optional<milliseconds> limit;
    std::size_t kept = std::string::npos;  // bytes of the output
    std::ostringstream input;
    std::string unsent;
    std::size_t sent = 0;
    std::string output;
    std::optional<int> status;
    bool own_session;
    pid_t pid = -1;
    Fd in;      // its standard input
    Fd out;     // its standard output
    Fd ending;  // readable when it has ended
};

template <class What>
Execute::Child::Child(const What& what, int mode) : own_session((mode & kOwnSession) != 0) {
    Pipe to_child = (mode & kPipeIn) != 0 ? MakePipe() : Pipe{};
    Pipe from_child = (mode & kPipeOut) != 0 ? MakePipe() : Pipe{};
    pid = Spawn(what, to_child.read.get(), from_child.write.get(), own_session);
    in = std::move(to_child.write);
    out = std::move(from_child.read);
    // glibc 2.36 declares it for C alone.
    ending = Fd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    SetNonBlocking(in);
    SetNonBlocking(out);
}

void Execute::Child::Run() {
    if (status) return;
    const SigpipeBlocked no_sigpipe;
    unsent = std::move(input).str();
    if (unsent.empty()) in.Close();
    while (!status) {
        Poll();
        Write();
        Read(kChunk);
        if (!Reap(WNOHANG)) continue;
        // A grandchild may hold the pipe open, and write on, for ever: what is in it now is the child's
        // output.
        int left = 0;
        if (out && ioctl(out.get(), FIONREAD, &left) == 0) Read(static_cast<std::size_t>(left));
        out.Close();
    }
    Cut();
    in.Close();
}

void Execute::Child::Poll() {
    const auto events = [](const Fd& fd, short what) { return pollfd{fd.get(), what, 0}; };
    pollfd fds[] = {events(in, POLLOUT), events(out, POLLIN), events(ending, POLLIN),
                    pollfd{vek_interrupt::WakeFd(), POLLIN, 0}};
    poll(fds, std::size(fds), static_cast<int>(Patience().count()));
    vek_interrupt::Check();
}

// How long the next poll may take; ends a child whose time is up.
milliseconds Execute::Child::Patience() {
    const milliseconds most = ending ? kLongestPoll : kTick;
    if (!limit) return most;
    const auto used = std::chrono::floor<milliseconds>(steady_clock::now() - start);
    if (used < *limit) return std::min(most, *limit - used);
    End();
    return most;
}

void Execute::Child::Write() {
    if (!in) return;
    const auto count = write(in.get(), unsent.data() + sent, unsent.size() - sent);
    if (count > 0) sent += static_cast<std::size_t>(count);
    // A child that has closed its input has had enough of it.
    if (sent == unsent.size() || (count < 0 && !WouldBlock())) in.Close();
}

void Execute::Child::Read(std::size_t most) {
    while (out && most > 0) {
        char chunk[kChunk];
        const auto count = read(out.get(), chunk, std::min(most, kChunk));
        if (count < 0 && WouldBlock()) return;
        if (count <= 0) return out.Close();
        output.append(chunk, static_cast<std::size_t>(count));
        // Not at each chunk, since what is kept moves to the front.
        if (output.size() / 2 > kept) Cut();
        most -= static_cast<std::size_t>(count);
    }
}

void Execute::Child::Cut() {
    if (output.size() > kept) output.erase(0, output.size() - kept);
}

bool Execute::Child::Reap(int options) {
    int wait_status = 0;
    pid_t ended = 0;
    do {
        ended = waitpid(pid, &wait_status, options);
    } while (ended < 0 && errno == EINTR);
    if (ended == 0) return false;
    // A process that ignores SIGCHLD has no children to wait for, and never learns how they ended.
    status = ended == pid ? StatusOf(wait_status) : 255;
    return true;
}

void Execute::Child::End() { kill(own_session ? -pid : pid, SIGKILL); }

Execute::Execute(const std::string& command, int mode) : child_(std::make_unique<Child>(command, mode)) {}

Execute::Execute(const Program& program, int mode) : child_(std::make_unique<Child>(program, mode)) {}

Execute::~Execute() {
    if (child_->status) return;
    child_->End();
    child_->Reap(0);
}

void Execute::LimitTime(milliseconds limit) { child_->limit = limit; }

void Execute::KeepLast(std::size_t bytes) { child_->kept = bytes; }

std::ostream& Execute::In() { return child_->input; }

// Nothing is sent before the wait, so all that is left to do here is to refuse further input.
void Execute::CloseIn() { child_->input.setstate(std::ios_base::badbit); }

int Execute::Result() {
    CloseIn();
    try {
        vek_interrupt::Check();
        child_->Run();
    } catch (const Interrupted&) {
        if (!child_->status) {
            child_->End();
            child_->Reap(0);
        }
        throw;
    }
    return *child_->status;
}

std::string Execute::Str() {
    Result();
    return child_->output;
}

}  // namespace vek_proc
