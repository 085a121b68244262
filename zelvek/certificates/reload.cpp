#include "zelvek/certificates/reload.h"

#include <algorithm>
#include <vector>

#include "vek/proc.h"
#include "vek/str.h"
#include "zelvek/base/text.h"
#include "zelvek/base/tool.h"

namespace zelvek {
namespace {

std::string Export(const std::string& name, const std::string& value) {
    return "export " + name + "=" + vek_proc::Escape(value) + "\n";
}

/// The shell sets the variables, because other threads may be reading this process's environment.
std::string CommandLine(const std::string& command, const InstalledCertificate& installed) {
    return Export("VEK_CERT_DIR", installed.directory) + Export("VEK_CERT_NAME", installed.name) +
           Export("VEK_CERT_USER", installed.user) + command;
}

/// Whether the output shows a private key: the first line of any, or a line of this one. A command may well
/// print the files that it reads.
bool ShowsKey(const std::string& output, const std::string& key) {
    constexpr std::size_t kTelling =
        16;  // a shorter line, as the last may be, stands in other texts by chance
    const std::vector<std::string> lines = str::Split(key, "\n");
    return output.find("PRIVATE KEY") != std::string::npos ||
           std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
               return line.size() >= kTelling && output.find(line) != std::string::npos;
           });
}

}  // namespace

std::string RunReload(const std::string& command, std::chrono::seconds limit,
                      const InstalledCertificate& installed) {
    const ToolRun reload = RunTool(CommandLine(command, installed), "", limit);
    if (reload.status == 0) return "";

    const std::string outcome =
        reload.timed_out ? "did not end within " + str::Str(static_cast<long>(limit.count())) + " seconds"
                         : "failed with status " + str::Str(reload.status);
    const std::string shown =
        ShowsKey(reload.output, installed.key) ? "(its output holds key material)" : LastLines(reload.output);
    return "the reload command " + str::Append(outcome, shown, ": ");
}

}  // namespace zelvek
