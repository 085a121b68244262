#pragma once

/// The plug-in's entry point. The framework owns `main` and calls it. An exception that leaves it is written
/// to standard error and the log, and the exit status is then neither 0 nor 1; static objects are destroyed
/// in any case.
int zelmain(int argc, char** argv);

namespace vek_launcher {

/// What a plug-in says of itself.
struct About {
    const char* version;
    const char* arguments;  // as a usage line names them, such as "ID"
    const char* purpose;    // one sentence
};

/// A plug-in may define it. Then the launcher answers a command line of "--help" or "--version" alone, with
/// status 0: neither `zelmain` nor the destructor of a static object is called, so no service is asked.
/// Without it these are arguments like any other. Where a plug-in returns another status than 0 before it has
/// asked its service anything, and no service is there either when its static objects write back, its usage
/// goes to standard error and the process ends at once, with that status.
[[gnu::weak]] extern const About about;

}  // namespace vek_launcher
