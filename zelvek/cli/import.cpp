// Existing certificates taken over: each becomes a job.
#include <json/json.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/text.h"
#include "zelvek/cli/ask.h"
#include "zelvek/cli/cli.h"
#include "zelvek/cli/import_sources.h"
#include "zelvek/cli/json_output.h"
#include "zelvek/cli/table.h"
#include "zelvek/records/next_step.h"

namespace zelvek::cli {

namespace {

/// What holds for all certificates of a command.
struct ImportOptions {
    std::string user, check, authority;
    bool foreign_names = false;
    bool dry_run = false;
    bool json = false;
};

struct FilesOptions : ImportOptions {
    std::string certificate, key, chain, certname;
};

struct FolderOptions : ImportOptions {
    std::filesystem::path folder = "/etc/letsencrypt";
    std::vector<std::string> users_of;  // DOMAIN=USER
};

/// What became of one.
struct Imported {
    std::string name, user;
    std::string code = {};     // the error's word; empty where it was taken over
    std::string problem = {};  // a sentence with what to do
    int job = 0;               // 0: none, or not yet
    bool already = false;
    std::string names = {}, expires = {}, place = {}, check = {};
    std::vector<std::string> domains = {};  // that become the user's with it
};

/// What a person can do where the service's sentence does not say it.
std::string Help(Code code) {
    switch (code) {
        case Code::kBadKey: return "see that the key is this certificate's, and not encrypted";
        case Code::kBadChain: return "see that the file holds the certificate and its issuers, nothing else";
        default: return "";
    }
}

Imported Refused(const std::string& name, const std::string& user, const Error& error) {
    const std::string help = Help(error.code());
    return {name, user, Word(error.code()), str::Append(error.what(), help, ": ")};
}

Imported Send(const ImportSource& source, const std::string& user, const std::string& certname,
              const ImportOptions& options) {
    const std::string& check = options.check.empty() ? source.check : options.check;
    std::map<std::string, std::string> parameters{
        {"user_name", user},   {"certname", certname},           {"domain", DomainOfName(source.name)},
        {"check_type", check}, {"authority", options.authority}, {"crt", source.certificates},
        {"key", source.key}};
    if (options.foreign_names) parameters["foreign_names"] = "on";
    if (options.dry_run) parameters["dry_run"] = "on";
    const auto answer = Ask("zelvek.certificate.import", parameters);
    Imported imported{answer.value("certname"), user};
    imported.job = str::Int(answer.value("id"));
    imported.already = answer.value("already") == "on";
    imported.names = answer.value("names");
    imported.expires = answer.value("expires");
    imported.place = answer.value("place");
    imported.check = answer.value("check_type");
    for (const auto& domain : answer.xml().GetNodes("/doc/domain"))
        imported.domains.push_back(domain.Value("name"));
    return imported;
}

Imported Take(const ImportSource& source, const std::string& user, const std::string& certname,
              const ImportOptions& options) {
    try {
        if (!source.obstacle.empty()) throw Error(Code::kValue, source.obstacle);
        if (user.empty())
            throw Error(Code::kValue, "nobody knows whose it is: say --user-of " + DomainOfName(source.name) +
                                          "=USER, or --user for all");
        return Send(source, user, certname, options);
    } catch (const Error& error) {
        if (error.code() == Code::kDenied) throw;  // of all of them
        return Refused(source.name.empty() ? certname : source.name, user, error);
    }
}

std::string StateOfImport(const Imported& imported, bool dry_run) {
    if (!imported.code.empty()) return "refused";
    if (imported.already) return "there";
    return dry_run ? "possible" : "taken";
}

Json::Value JsonOf(const Imported& imported, bool dry_run) {
    Json::Value json;
    json["name"] = imported.name;
    json["user"] = imported.user;
    json["state"] = StateOfImport(imported, dry_run);
    json["job"] = imported.job == 0 ? Json::Value() : Json::Value(imported.job);
    json["expires"] = TimeJson(imported.expires);
    json["place"] = imported.place;
    json["check"] = imported.check;
    json["names"] = Json::arrayValue;
    for (const std::string& name : str::Split(imported.names, " ")) json["names"].append(name);
    json["domains"] = Json::arrayValue;
    for (const std::string& name : imported.domains) json["domains"].append(name);
    json["error"] = Json::nullValue;
    if (imported.code.empty()) return json;
    json["error"] = Json::objectValue;
    json["error"]["code"] = imported.code;
    json["error"]["message"] = imported.problem;
    return json;
}

std::string TextOf(const Imported& imported) {
    if (!imported.code.empty()) return imported.problem;
    std::string domains;
    for (const std::string& name : imported.domains) str::inpl::Append(domains, name, ", ");
    std::string text = imported.names + " in " + imported.place;
    if (!domains.empty()) text += "; new domains of " + imported.user + ": " + domains;
    return text;
}

void Print(const std::vector<Imported>& all, bool dry_run) {
    std::vector<std::vector<std::string>> rows;
    rows.reserve(all.size());
    for (const Imported& imported : all) {
        rows.push_back({StateOfImport(imported, dry_run), imported.job == 0 ? "" : str::Str(imported.job),
                        imported.name, imported.user, records::DayOf(imported.expires), TextOf(imported)});
    }
    std::cout << OutputTable({"STATE", "JOB", "CERTIFICATE", "USER", "EXPIRES", "NAMES AND PLACE"}, rows);
    if (dry_run) {
        std::cout << "\nNothing was changed.\n";
        return;
    }
    const bool any = std::any_of(all.begin(), all.end(), [](const auto& one) { return one.code.empty(); });
    if (!any) return;
    std::cout << "\n"
              << OutputText(
                     "Have the web server use these places, and serve the answers for the renewals of http "
                     "jobs (\"zelvek doctor\" looks whether it does); then take the old client's renewals "
                     "away.")
              << "\n";
}

int StatusOf(const std::vector<Imported>& all) {
    for (const Imported& imported : all) {
        if (!imported.code.empty()) return kFailure;
    }
    return kSuccess;
}

int ImportFiles(const FilesOptions& options) {
    ImportSource source = ReadCertificateFiles(options.certificate, options.key, options.chain);
    if (!source.obstacle.empty()) throw Error(Code::kValue, source.obstacle);
    const Imported imported = Take(source, options.user, options.certname, options);
    if (!imported.code.empty()) throw Error(CodeOf(imported.code), imported.problem);
    if (options.json) {
        PrintJson(JsonOf(imported, options.dry_run));
    } else {
        Print({imported}, options.dry_run);
    }
    return kSuccess;
}

/// Whose a certificate is: the longest DOMAIN that its name is or lies below, else the user of all.
std::string UserOf(const std::string& name, const FolderOptions& options) {
    const std::string domain = DomainOfName(name);
    std::string user = options.user;
    std::size_t longest = 0;
    for (std::string entry : options.users_of) {
        const std::string holder = str::GetWord(entry, '=');
        const bool holds = domain == holder || domain.ends_with("." + holder);
        if (!holds || holder.size() < longest) continue;
        longest = holder.size();
        user = entry;
    }
    return user;
}

int ImportFolder(const FolderOptions& options) {
    const std::vector<ImportSource> sources = ReadLetsencryptFolder(options.folder);
    Ask("zelvek.status", {});  // one complaint where there is no service, not one for each
    std::vector<Imported> all;
    all.reserve(sources.size());
    for (const ImportSource& source : sources)
        all.push_back(Take(source, UserOf(source.name, options), source.name, options));
    if (!options.json) {
        Print(all, options.dry_run);
        return StatusOf(all);
    }
    Json::Value list(Json::arrayValue);
    for (const Imported& imported : all) list.append(JsonOf(imported, options.dry_run));
    PrintJson(list);
    return StatusOf(all);
}

void AddImportOptions(Command& command, ImportOptions& options) {
    AddJsonFlag(command, options.json);
    command
        .AddOption("--check", options.check,
                   "How names are proved at renewals: http or dns; without it dns for wildcards alone")
        .OneOf({"http", "dns"});
    command.AddOption("--authority", options.authority, "Who renews it (\"zelvek authority list\")");
    command.AddFlag("--foreign-names", options.foreign_names, "Names may lie outside the owner's domains");
    command.AddFlag("--dry-run", options.dry_run, "Says what would be done, and does nothing");
}

void AddFilesCommand(Command& noun) {
    const auto options = std::make_shared<FilesOptions>();
    Command command = noun.AddCommand("certificate", "Takes one certificate over, as it is",
                                      [options] { return ImportFiles(*options); });
    command.AddOption("--user", options->user, "Its owner").Required();
    command.AddOption("--cert", options->certificate, "The certificate's file, PEM").Required();
    command.AddOption("--key", options->key, "Its key's file, PEM, not encrypted").Required();
    command.AddOption("--chain", options->chain, "A file with its issuers, where the first has none");
    command.AddOption("--certname", options->certname, "Name of the certificate; without it, its first name");
    AddImportOptions(command, *options);
}

void AddFolderCommand(Command& noun) {
    const auto options = std::make_shared<FolderOptions>();
    Command command = noun.AddCommand("letsencrypt", "Takes all certificates of a folder over, each as it is",
                                      [options] { return ImportFolder(*options); });
    command.AddOption("DIR", options->folder, "The folder, with live/ and renewal/");
    command.AddOption("--user", options->user, "Whose they are, where --user-of says nothing");
    command
        .AddOption("--user-of", options->users_of,
                   "DOMAIN=USER: whose certificates of this domain and those below are; repeatable")
        .Check([](const std::string& text) {
            const std::size_t at = text.find('=');
            const bool whole = at != std::string::npos && at > 0 && at + 1 < text.size();
            return whole ? std::string() : "\"" + text + "\" is no DOMAIN=USER";
        });
    AddImportOptions(command, *options);
}

}  // namespace

void AddImportCommands(Command& root) {
    Command noun = root.AddGroup("import", "Certificates of other clients");
    AddFilesCommand(noun);
    AddFolderCommand(noun);
}

}  // namespace zelvek::cli
