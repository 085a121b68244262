#include <json/json.h>
#include <unistd.h>

#include <iostream>
#include <memory>

#include "vek/proc.h"
#include "zelvek/base/json_text.h"
#include "zelvek/base/run_directory.h"
#include "zelvek/base/service_user.h"
#include "zelvek/moving/commands.h"
#include "zelvek/moving/store_copy.h"

namespace zelvek::moving {

namespace {

struct CopyOptions {
    std::string from;
    std::string to;
    bool json = false;
};

void TellProgress(const std::string& table, long long rows) {
    std::cerr << table << ": " << rows << " rows" << (::isatty(STDERR_FILENO) != 0 ? "   \r" : "\n");
}

void Tell(const CopyReport& report, const CopyOptions& options) {
    if (!options.json) {
        long long rows = 0;
        for (const CopiedTable& table : report.tables) rows += table.rows;
        std::cout << rows << " rows of " << report.tables.size() << " tables are the same on both sides\n";
        if (report.mended > 0)
            std::cout << report.mended << " texts had bytes that no text has: U+FFFD stands for them now\n";
        return;
    }
    Json::Value json;
    json["tables"] = Json::arrayValue;
    for (const CopiedTable& table : report.tables) {
        Json::Value entry;
        entry["name"] = table.name;
        entry["rows"] = static_cast<Json::Int64>(table.rows);
        entry["sha256"] = table.digest;
        json["tables"].append(entry);
    }
    json["mended"] = static_cast<Json::Int64>(report.mended);
    std::cout << JsonText(json) << "\n";
}

/// Root's copy is the work of the service's user, who is known by the folder of either file, or by the
/// service's own.
std::filesystem::path OwnFolder(const Place& from, const Place& to) {
    if (from.IsFile()) return from.File().parent_path();
    return to.IsFile() ? to.File().parent_path() : RunDirectory();
}

int CopyAll(const CopyOptions& options) {
    vek_proc::LeaveNoCoreFile();
    const Place from(options.from);
    const Place to(options.to);
    BecomeServiceUser(OwnFolder(from, to));
    const auto progress = options.json ? CopyProgress([](const std::string&, long long) {}) : TellProgress;
    Tell(CopyStore(from, to, progress), options);
    return kSuccess;
}

}  // namespace

void AddStoreCommands(Command& root) {
    const auto options = std::make_shared<CopyOptions>();
    Command noun = root.AddGroup("store", "Where everything that the panel keeps is kept");
    Command copy = noun.AddCommand(
        "copy", "Copies it from a file to a server's database, or the other way, while no service runs",
        [options] { return CopyAll(*options); });
    copy.AddOption("FROM", options->from, "A file, or the URL of a database (postgresql://...)")
        .Required()
        .NotEmpty();
    copy.AddOption("TO", options->to, "The same, without anything in it; an interrupted copy goes on")
        .Required()
        .NotEmpty();
    copy.AddFlag("--json", options->json, "One JSON text on standard output");
}

}  // namespace zelvek::moving
