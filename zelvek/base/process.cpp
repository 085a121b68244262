#include "zelvek/base/process.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>

namespace zelvek {

std::optional<Process> FindProcess(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    // The process may end while its file is read, which is a failure of the reading then.
    std::string stat;
    std::getline(file, stat, '\0');
    // The second field is the program's name in parentheses. It may hold blanks and parentheses itself, so
    // the last one ends it.
    const auto name_end = stat.rfind(')');
    if (name_end == std::string::npos) return std::nullopt;

    std::istringstream fields(stat.substr(name_end + 1));
    std::string state;
    std::string skipped;
    fields >> state;
    for (int field = 4; field < 22; ++field) fields >> skipped;
    Process process{pid, 0};
    if (!(fields >> process.start) || state == "Z" || state == "X") return std::nullopt;
    return process;
}

bool Alive(const Process& process) { return FindProcess(process.pid) == process; }

std::chrono::milliseconds AgeOf(const Process& process) {
    timespec since_boot{};
    ::clock_gettime(CLOCK_BOOTTIME, &since_boot);
    const auto now = std::chrono::seconds(since_boot.tv_sec) + std::chrono::nanoseconds(since_boot.tv_nsec);
    const std::chrono::milliseconds start(process.start * 1000 / ::sysconf(_SC_CLK_TCK));
    return std::max(std::chrono::duration_cast<std::chrono::milliseconds>(now) - start,
                    std::chrono::milliseconds{0});
}

}  // namespace zelvek
