#include "spawn.h"

#include <fcntl.h>
#include <spawn.h>

#include <cerrno>
#include <csignal>
#include <system_error>
#include <vector>

#include "vek/err.h"

namespace vek_proc {
namespace {

void Require(int error) {
    if (error != 0) throw vek_err::Error("proc", "start", std::generic_category().message(error));
}

// Where a standard descriptor is closed, a new pipe gets its number; in the child it would be overwritten by
// the child's own standard descriptors.
void MoveUp(Fd& fd) {
    if (fd.get() > STDERR_FILENO) return;
    Fd moved(fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    Require(moved ? 0 : errno);
    fd = std::move(moved);
}

class Attributes {
public:
    explicit Attributes(bool own_session) {
        Require(posix_spawnattr_init(&attributes_));
        sigset_t signals;
        sigfillset(&signals);
        Require(posix_spawnattr_setsigdefault(&attributes_, &signals));
        sigemptyset(&signals);
        Require(posix_spawnattr_setsigmask(&attributes_, &signals));
        const int flags =
            POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | (own_session ? POSIX_SPAWN_SETSID : 0);
        Require(posix_spawnattr_setflags(&attributes_, static_cast<short>(flags)));
    }
    ~Attributes() { posix_spawnattr_destroy(&attributes_); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
};

class Descriptors {
public:
    enum class Errors { kOwn, kToOutput };

    Descriptors(int input, int output, Errors errors) {
        Require(posix_spawn_file_actions_init(&actions_));
        if (input >= 0) {
            Require(posix_spawn_file_actions_adddup2(&actions_, input, STDIN_FILENO));
        } else {
            Require(posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
        }
        if (output >= 0) Require(posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO));
        if (errors == Errors::kToOutput) {
            Require(posix_spawn_file_actions_adddup2(&actions_, STDOUT_FILENO, STDERR_FILENO));
        }
        Require(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
    }
    ~Descriptors() { posix_spawn_file_actions_destroy(&actions_); }
    Descriptors(const Descriptors&) = delete;
    Descriptors& operator=(const Descriptors&) = delete;
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

/// The words as exec(3) takes them, which does not change them.
std::vector<char*> Pointers(std::vector<std::string>& words) {
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

Pipe MakePipe() {
    int ends[2];
    Require(pipe2(ends, O_CLOEXEC) == 0 ? 0 : errno);
    Pipe pipe{Fd(ends[0]), Fd(ends[1])};
    MoveUp(pipe.read);
    MoveUp(pipe.write);
    return pipe;
}

pid_t Spawn(const std::string& command, int input, int output, bool own_session) {
    const Attributes attributes(own_session);
    const Descriptors descriptors(input, output, Descriptors::Errors::kOwn);
    // "--": a command that begins with "-" is a command all the same.
    std::vector<std::string> words{"sh", "-c", "--", command};
    pid_t pid = -1;
    Require(
        posix_spawn(&pid, "/bin/sh", descriptors.get(), attributes.get(), Pointers(words).data(), environ));
    return pid;
}

pid_t Spawn(const Program& program, int input, int output, bool own_session) {
    const Attributes attributes(own_session);
    const Descriptors descriptors(input, output, Descriptors::Errors::kToOutput);
    std::vector<std::string> words{program.path};
    words.insert(words.end(), program.arguments.begin(), program.arguments.end());
    std::vector<std::string> environment = program.environment;
    pid_t pid = -1;
    Require(posix_spawn(&pid, program.path.c_str(), descriptors.get(), attributes.get(),
                        Pointers(words).data(), Pointers(environment).data()));
    return pid;
}

}  // namespace vek_proc
