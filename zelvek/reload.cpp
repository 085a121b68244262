#include "zelvek/reload.h"

#include <algorithm>
#include <vector>

#include "vek/err.h"
#include "vek/proc.h"
#include "vek/str.h"
#include "zelvek/printable.h"

namespace zelvek {
namespace {

using Clock = std::chrono::steady_clock;

/// The variables are set by the shell, because another thread may be reading this process's environment. Each
/// stands on a line of its own, so that the command may be a list or a pipeline.
std::string CommandLine(const std::string& command, const InstalledCertificate& installed) {
    return "exec 2>&1\n"
           "export VEK_CERT_DIR=" +
           vek_proc::Escape(installed.directory) +
           "\n"
           "export VEK_CERT_NAME=" +
           vek_proc::Escape(installed.name) +
           "\n"
           "export VEK_CERT_USER=" +
           vek_proc::Escape(installed.user) + "\n" + command;
}

/// Whether a command that prints what it reads has printed a key: any private key, or a line of this one.
bool ShowsKey(const std::string& output, const std::string& key) {
    constexpr std::size_t kTelling = 16;  // shorter last lines stand in other texts by chance
    const std::vector<std::string> lines = str::Split(key, "\n");
    return output.find("PRIVATE KEY") != std::string::npos ||
           std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
               return line.size() >= kTelling && output.find(line) != std::string::npos;
           });
}

std::string Outcome(int status, Clock::duration taken, std::chrono::seconds limit) {
    if (status > 128 && taken >= limit) {
        return "did not end within " + str::Str(static_cast<long>(limit.count())) + " seconds";
    }
    return "failed with status " + str::Str(status);
}

}  // namespace

void RunReload(const std::string& command, std::chrono::seconds limit,
               const InstalledCertificate& installed) {
    const Clock::time_point start = Clock::now();
    vek_proc::Execute reload(CommandLine(command, installed), vek_proc::kPipeOut | vek_proc::kOwnSession);
    reload.LimitTime(limit);
    const int status = reload.Result();
    if (status == 0) return;

    const std::string outcome = Outcome(status, Clock::now() - start, limit);
    const std::string output = reload.Str();
    const std::string shown =
        ShowsKey(output, installed.key) ? "(its output holds key material)" : LastLines(output);
    throw vek_err::Error::Reported(
        "hook", "the certificate is in place, but the reload command " + str::Append(outcome, shown, ": "));
}

}  // namespace zelvek
