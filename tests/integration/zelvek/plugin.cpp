// A plug-in for the tests of the service: its run does what the job's certificate name says, up to a "-".
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <map>

#include "vek/client.h"
#include "vek/launcher.h"
#include "vek/log.h"
#include "vek/proc.h"
#include "vek/str.h"

namespace {

constexpr std::uint64_t kLong = 600'000;  // milliseconds

void WriteBack(const std::string& id, int attempts, std::map<std::string, std::string> entries) {
    entries["elid"] = id;
    entries["attempt_count"] = str::Str(attempts);
    entries["processing"] = "off";
    entries["log"] = "2026-01-01 00:00:00,processing,run,number " + str::Str(attempts);
    vek_client::Local("zelvek", "plugin").Query("func=ambrin.data.edit&sok=ok", entries);
}

/// One line a run: the job and the process.
void Note(const std::string& id) {
    std::ofstream runs(std::string(std::getenv("VEK_LOG_DIR")) + "/runs", std::ios::app);
    runs << id + " " + std::to_string(getpid()) + "\n" << std::flush;
}

}  // namespace

int zelmain(int, char** argv) {
    const std::string id = argv[1];
    vek_log::Init("ambrin", vek_log::kTrace);
    const vek_log::Module log("zelvek", "test");
    Note(id);
    if (std::getenv("PLUGIN_DIES_AT_ONCE") != nullptr) return 7;
    const auto record =
        vek_client::Local("zelvek", "plugin").Query("func=ambrin.data.edit&elid=?&out=xml", id);
    std::string certname = record.value("certname");
    const std::string way = str::GetWord(certname, '-');
    const int attempts = str::Int(record.value("attempt_count")) + 1;
    log.Write(vek_log::kTrace, "plugin:1 start '%s' cert verification", record.value("certname"));
    log.Write(vek_log::kTrace, "run of '%s'\nsecond line", record.value("certname"));

    std::map<std::string, std::string> entries;
    if (way == "dies") ::raise(SIGKILL);
    if (way == "installs") entries["verified"] = "on";
    if (way == "stops") entries["failed"] = "on";
    if (way == "waits") {
        vek_client::Local("zelvek", "plugin")
            .Query("func=ambrin_challenge&action=create&user_name=anna&file_name=?&content=c", "token-" + id);
        entries = {{"challenges", "pending"}, {"next_attempt", "2999-01-01 00:00:00"}};
    }
    if (way == "stays") {
        try {
            vek_proc::Sleep(kLong);
        } catch (const vek_proc::Interrupted&) {
            log.Write(vek_log::kTrace, "does not mind");
            for (;;) ::pause();
        }
    }
    if (way == "hangs") {
        try {
            vek_proc::Sleep(kLong);
        } catch (const vek_proc::Interrupted&) {
            WriteBack(id, attempts, {{"kid", "interrupted"}});
            throw;
        }
    }
    WriteBack(id, attempts, entries);
    return way == "fails" ? 1 : 0;
}
