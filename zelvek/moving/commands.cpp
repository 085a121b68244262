#include "zelvek/moving/commands.h"

#include <fcntl.h>
#include <json/json.h>
#include <unistd.h>

#include <iostream>
#include <memory>
#include <optional>

#include "vek/proc.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"
#include "zelvek/base/json_text.h"
#include "zelvek/base/service_user.h"
#include "zelvek/moving/output_file.h"
#include "zelvek/moving/restore.h"
#include "zelvek/store/place.h"

namespace zelvek::moving {

namespace fs = std::filesystem;

namespace {

/// What both commands take.
struct CommonOptions {
    std::string file;
    std::string config = "/etc/zelvek/zelvek.conf";
    fs::path database;
    fs::path certificates;
    fs::path passphrase_file;
    fs::path key_file;
    bool force = false;
    bool json = false;
};

struct BackupOptions : CommonOptions {
    fs::path new_key;
};

void AddCommonOptions(Command& command, CommonOptions& options, const std::string& about_force) {
    command.AddOption("--config", options.config, "The service's file of options, which says where all lies")
        .NotEmpty();
    command.AddOption("--database", options.database, "Instead of the file's");
    command.AddOption("--certs-dir", options.certificates, "Instead of the file's");
    command.AddOption("--passphrase-file", options.passphrase_file,
                      "Encrypted with the passphrase in this file's first line");
    command.AddOption("--key-file", options.key_file, "Encrypted with the key in this file");
    command.AddFlag("--force", options.force, about_force);
    command.AddFlag("--json", options.json, "One JSON text on standard output");
}

/// The file of options is not needed where the command line says everything that it would.
int FindPlaces(const CommonOptions& options, const ReadPlaces& read, Places& places) {
    if (options.database.empty() || options.certificates.empty()) {
        const int status = read(options.config, places);
        if (status != kSuccess) return status;
    }
    if (!options.database.empty()) places.database = options.database;
    if (!Place(places.database).IsFile()) {
        throw Error(Code::kValue,
                    "a backup has the database of a file: \"zelvek store copy\" makes one of the "
                    "server's, which --database takes");
    }
    if (!options.certificates.empty()) places.certificates.directory = options.certificates;
    places.database = fs::absolute(places.database);
    places.certificates.directory = fs::absolute(places.certificates.directory);
    const fs::path folder = places.database.parent_path();
    if (fs::is_directory(folder)) return kSuccess;
    throw Error(Code::kMissed, "there is no folder " + folder.string() +
                                   "; it has to be there, and to belong to the service's user");
}

std::optional<Secret> FindSecret(const CommonOptions& options) {
    if (!options.passphrase_file.empty() && !options.key_file.empty())
        throw Error(Code::kValue, "--passphrase-file and --key-file exclude each other");
    if (!options.passphrase_file.empty()) return ReadPassphrase(options.passphrase_file);
    if (!options.key_file.empty()) return ReadKey(options.key_file);
    return std::nullopt;
}

Json::Value JsonOf(const Manifest& manifest, const std::vector<std::string>& remarks) {
    Json::Value json;
    json["version"] = manifest.version;
    json["time"] = manifest.time.substr(0, 10) + "T" + manifest.time.substr(11) + "Z";
    json["jobs"] = static_cast<Json::Int64>(manifest.jobs);
    json["domains"] = static_cast<Json::Int64>(manifest.domains);
    json["certificates"] = static_cast<Json::Int64>(manifest.certificates);
    json["remarks"] = Json::arrayValue;
    for (const std::string& remark : remarks) json["remarks"].append(remark);
    return json;
}

std::string TextOf(const Manifest& manifest) {
    return std::to_string(manifest.jobs) + " jobs, " + std::to_string(manifest.domains) + " domains, " +
           std::to_string(manifest.certificates) + " certificates";
}

std::string Lines(const std::vector<std::string>& remarks) {
    std::string lines;
    for (const std::string& remark : remarks) lines += remark + "\n";
    return lines;
}

std::string Told(const BackupReport& report, const CommonOptions& options, bool encrypted) {
    if (!options.json) {
        return TextOf(report.manifest) + (encrypted ? ", encrypted, in " : ", not encrypted, in ") +
               options.file + "\n" + Lines(report.remarks);
    }
    Json::Value json = JsonOf(report.manifest, report.remarks);
    json["file"] = options.file;
    json["encrypted"] = encrypted;
    return JsonText(json) + "\n";
}

int Backup(const BackupOptions& options, const ReadPlaces& read) {
    vek_proc::LeaveNoCoreFile();
    if (options.file.empty() == options.new_key.empty())
        throw Error(Code::kValue, "either FILE or --new-key is needed");
    if (!options.new_key.empty()) {
        MakeKey(options.new_key);
        return kSuccess;
    }
    Places places;
    if (const int status = FindPlaces(options, read, places); status != kSuccess) return status;
    RequireAccess(places.database, R_OK, "\"zelvek backup\", which reads all keys,");
    const std::optional<Secret> secret = FindSecret(options);
    // Root's own folders are no business of the service's user.
    OutputFile output(options.file,
                      options.force ? OutputFile::Present::kReplaced : OutputFile::Present::kRefused);
    const std::string told = AsServiceUser(places.database.parent_path(), [&] {
        const BackupReport report = WriteBackup(places, secret, ToFile(output.descriptor()));
        return Told(report, options, secret.has_value());
    });
    output.PutInPlace();
    std::cout << told;
    return kSuccess;
}

void Tell(const RestoreReport& report, const CommonOptions& options, const Places& places) {
    if (options.json) {
        Json::Value json = JsonOf(report.manifest, report.remarks);
        json["database"] = places.database.string();
        json["installed"] = report.installed;
        json["already_installed"] = report.same;
        std::cout << JsonText(json) << "\n";
        return;
    }
    std::cout << TextOf(report.manifest) << ", of " << report.manifest.time << " UTC, by zelvek "
              << report.manifest.version << "\n"
              << "database: " << places.database.string() << "\n"
              << "certificates: " << report.installed << " installed, " << report.same
              << " there already, in " << places.certificates.directory.string() << "\n"
              << Lines(report.remarks) << "The service can be started, and the web server reloaded.\n";
}

int RestoreFile(const CommonOptions& options, const ReadPlaces& read) {
    vek_proc::LeaveNoCoreFile();
    Places places;
    if (const int status = FindPlaces(options, read, places); status != kSuccess) return status;
    RequireAccess(places.database.parent_path(), W_OK, "\"zelvek restore\"");
    const std::optional<Secret> secret = FindSecret(options);
    const Descriptor file = Open(options.file, O_RDONLY);
    BecomeServiceUser(places.database.parent_path());
    const RestoreReport report =
        Restore(places, file.get(), secret, options.force ? Present::kMovedAside : Present::kRefused);
    Tell(report, options, places);
    return kSuccess;
}

}  // namespace

void AddCommands(Command& root, const ReadPlaces& read_places) {
    const auto backup = std::make_shared<BackupOptions>();
    Command make = root.AddCommand("backup", "Writes everything that the panel keeps into one file",
                                   [backup, read_places] { return Backup(*backup, read_places); });
    make.AddOption("FILE", backup->file, "The file to be made");
    AddCommonOptions(make, *backup, "Replaces a file that is there");
    make.AddOption("--new-key", backup->new_key, "Makes a file for --key-file, and no backup");

    const auto restore = std::make_shared<CommonOptions>();
    Command use = root.AddCommand("restore", "Makes a panel of a backup, while no service runs",
                                  [restore, read_places] { return RestoreFile(*restore, read_places); });
    use.AddOption("FILE", restore->file, "A file that backup has made").Required().NotEmpty();
    AddCommonOptions(use, *restore, "Moves a database aside in which there are jobs or domains");
}

}  // namespace zelvek::moving
