// A small plug-in for the launcher's tests: does what its arguments say. Like every plug-in it owns a global
// record that is written back by its destructor, after main has returned.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "vek/client.h"
#include "vek/crypto.h"
#include "vek/launcher.h"
#include "vek/log.h"
#include "vek/proc.h"
#include "vek/rpc.h"
#include "vek/str.h"

// Hides the C library's: there are no pipes where VEK_TEST_NO_PIPE is set.
extern "C" int pipe2(int ends[2], int flags) noexcept {
    if (std::getenv("VEK_TEST_NO_PIPE") == nullptr) return static_cast<int>(syscall(SYS_pipe2, ends, flags));
    errno = EMFILE;
    return -1;
}

namespace {

constexpr int kFedAndRead = vek_proc::kPipeIn | vek_proc::kPipeOut | vek_proc::kOwnSession;

std::string Get(const std::string& url) {
    vek_rpc::HttpQuery query;
    std::ostringstream out;
    query.Get(url, out);
    return out.str();
}

struct Record {
    ~Record() {
        if (!late_url.empty()) {
            detail = Get(late_url) +
                     std::to_string(vek_crypto::sign::Calculate(vek_crypto::RsaPrivateKey(2048), "x").size());
        }
        client.Query(query, detail);
        vek_log::Module("plugin", "record").Write(vek_log::kTrace, "written back");
    }

    vek_client::Local client{"zelvek", "plugin"};
    std::string query = "func=write_back&detail=?";
    std::string detail;
    std::string late_url;  // asked by the destructor
};

Record record;

void Ready() { std::cout << "ready" << std::endl; }

template <class Wait>
bool Throws(Wait wait) {
    try {
        wait();
        return false;
    } catch (const vek_proc::Interrupted&) {
        return true;
    }
}

// After one wait was interrupted, each kind of wait is, and the panel still answers.
void WaitAgain() {
    Throws([] { vek_proc::Sleep(600'000); });
    const bool all = Throws([] { vek_proc::Sleep(0); }) &&
                     Throws([] { vek_proc::Execute("sleep 600", kFedAndRead).Str(); }) &&
                     Throws([] { Get("http://127.0.0.1:1/"); });
    record.client.Query("func=after");
    record.detail = all ? "all" : "not all";
}

// Signals come to another thread than the one that waits.
void SleepDeaf() {
    std::thread([] {
        for (;;) pause();
    }).detach();
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    vek_proc::Sleep(600'000);
}

// An interrupted child is no more before its object is.
void KeepChild(const std::string& command) {
    vek_proc::Execute child(command, kFedAndRead);
    const bool interrupted = Throws([&child] { child.Str(); });
    record.detail = interrupted && waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD ? "reaped" : "kept";
}

// A call of the system's that a signal meets goes on, and reads what comes after it.
void ReadOn() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    const pthread_t self = pthread_self();
    std::thread other([self, &ends] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        pthread_kill(self, SIGTERM);  // NOLINT(bugprone-bad-signal-to-kill-thread): it ends nothing here
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        [[maybe_unused]] const auto written = write(ends[1], "x", 1);
    });
    char byte = 0;
    record.detail = read(ends[0], &byte, 1) == 1 ? "read" : "broken off";
    other.join();
}

int Run(const std::string& what, const std::string& value) {
    if (what == "return") return str::Int(value);
    if (what == "return, store") {
        record.query += "&sok=ok";
        return str::Int(value);
    }
    if (what == "read, then store") {
        record.query += "&sok=ok";
        record.client.Query("func=read");
    }
    if (what == "exception") throw std::runtime_error(value);
    if (what == "odd") throw 7;
    if (what == "sigpipe") raise(SIGPIPE);
    if (what == "again") WaitAgain();
    if (what == "sleep") vek_proc::Sleep(static_cast<std::uint64_t>(-1));
    if (what == "sleep, then store") {
        record.query += "&sok=ok";
        vek_proc::Sleep(600'000);
    }
    if (what == "sleep deaf") SleepDeaf();
    if (what == "terminate") std::terminate();
    if (what == "read on") ReadOn();
    if (what == "child kept") KeepChild(value);
    if (what == "child") record.detail = vek_proc::Execute(value, kFedAndRead).Str();
    if (what == "get") record.detail = Get(value);
    if (what == "early and late") record.late_url = (Get(value), value);
    if (what == "core") {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg,hicpp-vararg)
        record.detail = prctl(PR_GET_DUMPABLE) == 0 ? "none " : "core ";
        record.detail += vek_proc::Execute("ulimit -c; ulimit -Hc", kFedAndRead).Str();
    }
    if (what == "descriptors") {
        for (const char* fd : {"0", "1", "2"})
            record.detail += std::filesystem::read_symlink(std::string("/proc/self/fd/") + fd).string() + " ";
    }
    return 0;
}

}  // namespace

const vek_launcher::About vek_launcher::about{
    .version = "7.8.9", .arguments = "WHAT [VALUE]", .purpose = "Does what its arguments say."};

int zelmain(int argc, char** argv) {
    vek_log::Init("plugin", vek_log::kTrace);
    Ready();
    return Run(argc > 1 ? argv[1] : "", argc > 2 ? argv[2] : "");
}
