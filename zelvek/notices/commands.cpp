// Channels that are programs of this machine.
#include "vek/proc.h"
#include "vek/str.h"
#include "zelvek/base/text.h"
#include "zelvek/base/tool.h"
#include "zelvek/notices/channels.h"

namespace zelvek::notices {

namespace {

Handover Run(const std::string& command, const std::string& input, std::chrono::seconds limit) {
    const ToolRun run = RunTool(command, input, limit);
    if (run.status == 0) return {Handover::Outcome::kAccepted};
    if (run.timed_out) {
        return {Handover::Outcome::kUnknown,
                "did not end within " + str::Str(static_cast<long>(limit.count())) + " seconds"};
    }
    const std::string status = "failed with status " + str::Str(run.status);
    return {Handover::Outcome::kRefused, str::Append(status, LastLines(run.output), ": ")};
}

}  // namespace

Channel CommandChannel(const std::string& command, std::chrono::seconds limit) {
    return [=](const Message& message, const Handing& handing) {
        handing();
        return Run(command, message.data, limit);
    };
}

Channel SendmailChannel(const std::string& program, std::chrono::seconds limit) {
    return [=](const Message& message, const Handing& handing) {
        handing();
        // Programs of this machine take the line ends of this machine.
        return Run(vek_proc::Escape(program) + " -t -oi", str::Replace(message.data, "\r\n", "\n"), limit);
    };
}

}  // namespace zelvek::notices
