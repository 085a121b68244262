// The plug-ins' main. It stands alone in its file, so that a program with a main of its own does not get it
// from the archive.
#include "vek/launcher.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "end.h"
#include "interrupt.h"
#include "vek/log.h"
#include "vek/proc.h"

namespace {

constexpr int kException = 2;  // neither success nor the plug-in's own failure
constexpr int kSignal = 128;   // as shells report it

// A run that fails for want of its service fails once more when it is to write its record back: the same text
// is told once. A number, because static objects may be gone by then.
std::size_t told = 0;

void Report(const std::string& text) {
    const std::size_t telling = std::hash<std::string>{}(text);
    if (std::exchange(told, telling) == telling) return;
    const std::string line = program_invocation_short_name + (": " + text + "\n");
    [[maybe_unused]] const auto written = write(STDERR_FILENO, line.data(), line.size());
    vek_log::Module("vek", "launcher").WriteText(vek_log::kUse, text);
}

// Reports the exception that is being handled; returns the exit status that goes with it.
int ReportException() try { throw; } catch (const std::exception& e) {
    Report(e.what());
    return kException;
} catch (const vek_proc::Interrupted& interrupted) {
    Report(std::string("ended by ") + strsignal(interrupted.signal));
    return kSignal + interrupted.signal;
} catch (...) {
    Report("an exception of an unknown type");
    return kException;
}

std::string Usage() {
    const std::string name = program_invocation_short_name;
    return "usage: " + name + " " + vek_launcher::about.arguments + "\n       " + name +
           " --help | --version\n";
}

// Where the plug-in has refused its arguments and nobody was there to be told, the person at the terminal is.
void ExplainUnheard() {
    const int status = vek_end::StatusUnheard();
    if (status == 0 || &vek_launcher::about == nullptr) return;
    const std::string text = Usage();
    [[maybe_unused]] const auto written = write(STDERR_FILENO, text.data(), text.size());
    _exit(status);
}

// Ends the process for an exception that nobody can catch, such as one from the destructor of a static object
// that cannot write its record back.
[[noreturn]] void Terminate() {
    ExplainUnheard();
    if (std::current_exception()) {
        ReportException();
    } else {
        Report("terminated");
    }
    std::abort();
}

// The next file to be opened would get the number of a closed standard descriptor, and with it whatever is
// written there.
void OpenStandardDescriptors() {
    int fd = 0;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    close(fd);
}

// The answer to a question about the program itself; empty where none is asked.
std::string AboutText(int argc, char** argv) {
    if (&vek_launcher::about == nullptr || argc != 2) return "";
    const std::string_view question = argv[1];
    const std::string name = program_invocation_short_name;
    const vek_launcher::About& about = vek_launcher::about;
    if (question == "--version") return name + " " + about.version + "\n";
    if (question != "--help") return "";
    return Usage() + about.purpose + "\n";
}

// Ends the process where such a question was asked. Nothing is destroyed: a record that was never read must
// not be written back.
void AnswerAboutItself(int argc, char** argv) {
    const std::string text = AboutText(argc, argv);
    if (text.empty()) return;
    const auto written = write(STDOUT_FILENO, text.data(), text.size());
    _exit(written == static_cast<ssize_t>(text.size()) ? 0 : kException);
}

}  // namespace

int main(int argc, char** argv) try {
    vek_proc::LeaveNoCoreFile();
    OpenStandardDescriptors();
    AnswerAboutItself(argc, argv);
    std::set_terminate(&Terminate);
    std::signal(SIGPIPE, SIG_IGN);
    // A process that was started with SIGCHLD ignored could not wait for its children.
    std::signal(SIGCHLD, SIG_DFL);
    vek_interrupt::Watch();
    const int status = zelmain(argc, argv);
    vek_end::NoteStatus(status);
    return status;
} catch (...) {
    return ReportException();
}
