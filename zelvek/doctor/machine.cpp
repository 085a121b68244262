#include "zelvek/doctor/machine.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <system_error>

#include "vek/str.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/base/text.h"
#include "zelvek/base/tool.h"

namespace zelvek::doctor {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds kToolLimit{10};

std::string Why(int number) { return std::generic_category().message(number); }

bool IsInPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    const std::string folders = path == nullptr ? "/usr/local/bin:/usr/bin:/bin" : path;
    for (const std::string& folder : str::Split(folders, ":")) {
        if (::access((fs::path(folder) / program).c_str(), X_OK) == 0) return true;
    }
    return false;
}

/// "12.3 GiB".
std::string Size(unsigned long long bytes) {
    constexpr std::array units{"KiB", "MiB", "GiB", "TiB"};
    constexpr unsigned long long kStep = 1024;
    unsigned long long tenths = bytes * 10 / kStep;
    std::size_t unit = 0;
    for (; tenths >= kStep * 10 && unit + 1 < units.size(); ++unit) tenths /= kStep;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " " + units[unit];
}

/// What systemctl says of a unit; its first line.
std::string AskManager(const std::string& question, const std::string& unit) {
    std::string said = RunTool("exec systemctl " + question + " " + unit, "", kToolLimit).output;
    return WithoutControls(str::GetWord(said, '\n'), ' ');
}

bool AcceptsConnections(int family, const sockaddr* address, socklen_t size) {
    const Descriptor tried(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return tried && ::connect(tried.get(), address, size) == 0;
}

}  // namespace

Check Tools(const std::vector<std::string>& programs) {
    std::string missing;
    std::string there;
    for (const std::string& program : programs)
        str::inpl::Append(IsInPath(program) ? there : missing, program, ", ");
    if (missing.empty()) return Fine("programs", there);
    return Wrong("programs", "not found: " + missing,
                 "install them (Debian: apt install openssl bind9-dnsutils): every run needs them");
}

Check WritableFolder(const std::string& about, const fs::path& folder) {
    std::error_code error;
    if (!fs::is_directory(folder, error))
        return Wrong(about, folder.string() + " is no folder" + (error ? ": " + error.message() : ""),
                     "start the service once, which makes it, or see its option in zelvek.conf(5)");
    if (::access(folder.c_str(), W_OK | X_OK) != 0)
        return Wrong(about, folder.string() + ": " + Why(errno), "give it to the service's user (chown)");
    return Fine(about, folder.string());
}

Check SecretFile(const std::string& about, const fs::path& file) {
    struct stat found {};
    if (::stat(file.c_str(), &found) != 0)
        return Wrong(about, file.string() + ": " + Why(errno),
                     "see docs/deployment.md for where it comes from");
    if ((found.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        return Wrong(about, file.string() + " can be used by others than its user",
                     "chmod 600 " + file.string());
    if (::access(file.c_str(), R_OK) != 0) return Wrong(about, file.string() + ": " + Why(errno), "chown it");
    return Fine(about, file.string());
}

Check Disk(const std::string& about, const fs::path& folder) {
    constexpr unsigned long long kLittle = 100ULL << 20U;
    constexpr unsigned long long kFewFiles = 1000;
    struct statvfs found {};
    if (::statvfs(folder.c_str(), &found) != 0)
        return Wrong(about, folder.string() + ": " + Why(errno), "see whether its disk is mounted");
    const unsigned long long room = static_cast<unsigned long long>(found.f_bavail) * found.f_frsize;
    const std::string said = Size(room) + " free for " + folder.string();
    const bool few_files = found.f_files > 0 && found.f_favail < kFewFiles;
    if (few_files)
        return Wrong(about, "nearly no files can be made in " + folder.string(), "remove files there");
    if (room < kLittle) return Wrong(about, "only " + said, "make room: a full disk holds every run up");
    return Fine(about, said);
}

Check Listening(int port, const std::string& help) {
    const std::string about = "port " + std::to_string(port);
    sockaddr_in four{};
    four.sin_family = AF_INET;
    four.sin_port = htons(static_cast<in_port_t>(port));
    four.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr_in6 six{};
    six.sin6_family = AF_INET6;
    six.sin6_port = four.sin_port;
    six.sin6_addr = in6addr_loopback;
    if (AcceptsConnections(AF_INET, reinterpret_cast<const sockaddr*>(&four), sizeof(four)) ||
        AcceptsConnections(AF_INET6, reinterpret_cast<const sockaddr*>(&six), sizeof(six)))
        return Fine(about, "a server listens here");
    return Note(about, "nothing listens on this machine's loopback address", help);
}

Checks Units(const std::vector<std::string>& units) {
    if (!fs::exists("/run/systemd/system")) return {Note("units", "no systemd runs here")};
    Checks checks;
    for (const std::string& unit : units) {
        const std::string active = AskManager("is-active", unit);
        const std::string enabled = AskManager("is-enabled", unit);
        std::string said = unit;
        said.append(" is ").append(active).append(", ").append(enabled);
        if (active == "active" && (enabled == "enabled" || enabled == "static" || enabled == "indirect")) {
            checks.push_back(Fine("unit", said));
        } else {
            checks.push_back(Wrong("unit", said, "systemctl enable --now " + unit));
        }
    }
    return checks;
}

}  // namespace zelvek::doctor
