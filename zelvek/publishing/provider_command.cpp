#include <sysexits.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/text.h"
#include "zelvek/base/tool.h"
#include "zelvek/publishing/dns_backends.h"
#include "zelvek/publishing/dns_record.h"

namespace zelvek::dns {
namespace {

struct Provider {
    std::string program;  // absolute path
    int ttl = 0;          // of new records, in seconds
    std::chrono::seconds limit{60};
};

class CommandBackend : public Backend {
public:
    CommandBackend(Provider provider, std::set<std::string> zones)
        : provider_(std::move(provider)), zones_(std::move(zones)) {}

    bool Serves(const std::string& zone) const override { return zones_.count(zone) != 0; }
    std::vector<std::string> Zones() const override { return {zones_.begin(), zones_.end()}; }

    void AddTxt(const std::string& zone, const std::string& name, const std::string& value) override {
        Run("add", CheckedNewRecord(zone, name, value));
    }

    void RemoveTxt(const std::string& zone, const std::string& name, const std::string& value) override {
        const Record record = CheckedRecord(zone, name, value);
        if (record.IsInZone()) Run("remove", record);
    }

private:
    void Run(const std::string& verb, const Record& record) const {
        const std::string failure =
            "DNS command " + provider_.program + " " + verb + " " + record.zone + " " + record.name + ": ";
        if (!Serves(record.zone)) {
            throw Error(Code::kDns, failure + "the zone is not among those that may be written");
        }
        const ToolRun run = RunProgram(
            provider_.program, {verb, record.zone, record.name, record.value, str::Str(provider_.ttl)},
            provider_.limit);
        if (run.status == 0) return;
        const bool passes = run.timed_out || run.status == EX_TEMPFAIL;
        throw Error(passes ? Code::kUnavailable : Code::kDns, failure + Reason(run));
    }

    std::string Reason(const ToolRun& run) const {
        if (run.timed_out) {
            return "it did not end within " + str::Str(static_cast<long>(provider_.limit.count())) +
                   " seconds";
        }
        return str::Append(LastLines(str::Trim(run.output), 1), "(status " + str::Str(run.status) + ")", " ");
    }

    Provider provider_;
    std::set<std::string> zones_;
};

/// It is run without a shell, so that words after it, or a name to be looked for, would be part of its path.
void CheckProgram(const std::filesystem::path& program) {
    std::error_code error;
    if (program.is_absolute() && std::filesystem::is_regular_file(program, error) &&
        access(program.c_str(), X_OK) == 0) {
        return;
    }
    throw Error(Code::kValue, "the DNS command " + Printable(program.string()) +
                                  " is not the absolute path of a program that the service can run");
}

constexpr const char* kCommand = "dns-command";
constexpr const char* kZoneOption = "dns-command-zone";
constexpr const char* kTtlOption = "dns-command-ttl";
constexpr const char* kTimeout = "dns-command-timeout";

std::unique_ptr<Backend> MakeCommand(const Settings& settings) {
    const Provider provider{std::get<std::string>(settings.at(kCommand)),
                            std::get<int>(settings.at(kTtlOption)),
                            std::chrono::seconds{std::get<int>(settings.at(kTimeout))}};
    CheckProgram(provider.program);
    const auto zones = CheckedNames(std::get<std::vector<std::string>>(settings.at(kZoneOption)));
    if (zones.empty()) throw Error(Code::kValue, "the DNS command has no zone that may be written");
    return std::make_unique<CommandBackend>(provider, zones);
}

}  // namespace

BackendKind ProviderCommand() {
    return {"a DNS command",
            {{kCommand, "Program that adds and removes records at a DNS provider", std::string()},
             {kZoneOption, "A zone that it can change; repeatable", std::vector<std::string>()},
             {kTtlOption, "Seconds that its records may be cached", 60, 0, 86400},
             {kTimeout, "Seconds that it may take", 60, 1, 3600}},
            &MakeCommand};
}

}  // namespace zelvek::dns
