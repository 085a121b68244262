#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

/// Child processes, waiting, and the orderly end of a run.
namespace vek_proc {

/// What ends a run in order on SIGTERM and SIGINT: thrown by the wait that is under way (sleep, HTTP
/// exchange, child process) and by every later one. Deliberately no std::exception: code that takes any
/// std::exception for a failed exchange must not swallow it. Panel queries go on working.
struct Interrupted {
    int signal;
};

/// Waits that long; any 64-bit length really sleeps. Throws Interrupted.
void Sleep(std::uint64_t milliseconds);

/// From now on no core file of this process is written, whatever ends it: there are private keys in its
/// memory. Nobody but root can attach a debugger either. The launcher does this for every plug-in. Errors:
/// vek_err::Error("proc", "core", reason).
void LeaveNoCoreFile();

/// `argument` quoted as one word for /bin/sh. A NUL byte, which no command line can hold, ends it.
std::string Escape(const std::string& argument);

/// Bits of a child's mode.
enum Mode : int {
    kPipeIn = 0x02,      // the program writes the child's standard input; otherwise it is empty
    kPipeOut = 0x04,     // the program reads the child's standard output; otherwise it is the program's own
    kOwnSession = 0x80,  // no controlling terminal, so that no tool can ask a person for a pass phrase
};

/// A program with its words as they are. A NUL byte, which no word of a program can hold, ends the word.
struct Program {
    std::string path;                      // it is not looked for in PATH
    std::vector<std::string> arguments;    // those after its own name, which is the path
    std::vector<std::string> environment;  // all of it: "NAME=value"
};

/// One child process, fed and read synchronously.
class Execute {
public:
    /// Starts a command by /bin/sh. Standard error is this program's own.
    /// Errors: vek_err::Error("proc", "start", reason).
    Execute(const std::string& command, int mode);

    /// Starts a program without a shell. Its standard error goes where its standard output goes.
    /// Errors: vek_err::Error("proc", "start", reason), also for a program that is not there.
    Execute(const Program& program, int mode);

    /// Ends a child that is still running (with its process group, where it has a session of its own) and
    /// reaps it.
    ~Execute();
    Execute(const Execute&) = delete;
    Execute& operator=(const Execute&) = delete;

    /// The child is ended when it runs longer than this, counted from its start; `Result` is then 128 +
    /// SIGKILL.
    void LimitTime(std::chrono::milliseconds limit);

    /// Only the last `bytes` of the output are kept. A child that writes without end costs no more memory
    /// than that.
    void KeepLast(std::size_t bytes);

    /// The child's standard input. What is written is kept and sent while `Result` or `Str` waits, together
    /// with the reading of its output, so that no size of either can block. A child that does not read it is
    /// no error.
    std::ostream& In();

    /// Ends the input. `Result` and `Str` end it as well.
    void CloseIn();

    /// Waits for the end of the child. Returns its exit status, 128 + the signal's number for one ended by a
    /// signal; 127 where the shell does not find the command. Throws Interrupted (the child is ended and
    /// reaped then).
    int Result();

    /// Waits likewise and returns everything that the child wrote to its standard output, or the end of it.
    std::string Str();

private:
    struct Child;
    std::unique_ptr<Child> child_;
};

}  // namespace vek_proc
