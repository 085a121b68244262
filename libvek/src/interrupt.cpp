#include "interrupt.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>

#include "vek/err.h"
#include "vek/proc.h"

namespace vek_interrupt {
namespace {

// Plain values without destructors: waits read them even while static objects are being destroyed.
std::atomic<int> signal_seen{0};
std::atomic<bool> termination_seen{false};
std::atomic<bool> interrupt_seen{false};
std::atomic<bool> repeated{false};
std::atomic<int> read_end{-1};
std::atomic<int> write_end{-1};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler writes it");
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler writes it");

void Note(int number) {
    const int saved_errno = errno;
    // By number: a Ctrl-C may reach a run twice, as SIGINT from the terminal and as SIGTERM from who started
    // it.
    std::atomic<bool>& before = number == SIGINT ? interrupt_seen : termination_seen;
    if (before.exchange(true)) repeated = true;
    int none = 0;
    if (signal_seen.compare_exchange_strong(none, number)) {
        // One byte into an empty pipe: it cannot fail, and a wait that begins later finds it as well.
        [[maybe_unused]] const auto written = write(write_end.load(), "", 1);
    }
    errno = saved_errno;
}

}  // namespace

void Watch() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        throw vek_err::Error("launcher", "start", "no pipe for signals");
    read_end = ends[0];
    write_end = ends[1];
    struct sigaction action {};
    action.sa_handler = Note;
    action.sa_flags = SA_RESTART;
    sigset_t both;
    sigemptyset(&both);
    for (const int number : {SIGTERM, SIGINT}) {
        sigaction(number, &action, nullptr);
        sigaddset(&both, number);
    }
    // Whoever started the program may have had them blocked.
    pthread_sigmask(SIG_UNBLOCK, &both, nullptr);
}

void Check() {
    if (const int number = signal_seen.load(); number != 0) throw vek_proc::Interrupted{number};
}

bool IsRepeated() { return repeated.load(); }

int WakeFd() { return read_end.load(); }

}  // namespace vek_interrupt
