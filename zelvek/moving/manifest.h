#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "zelvek/certificates/installed.h"

/// What is in a backup.
namespace zelvek::moving {

/// The names of its files: the manifest, which is the last one, the database, and of each certificate
/// `certificates/<user>/<certificate>/fullchain.pem` and `privkey.pem`.
constexpr const char* kManifestName = "manifest.json";
constexpr const char* kDatabaseName = "zelvek.db";
constexpr const char* kChainFile = "fullchain.pem";
constexpr const char* kKeyFile = "privkey.pem";

std::string FileName(const install::InstalledName& name, const std::string& file);

/// Which file of which certificate a name means.
struct CertificateFile {
    install::InstalledName name;
    std::string file;
};

/// Errors: Error of code kValue for every name that `FileName` does not give.
CertificateFile ReadFileName(const std::string& name);

struct Manifest {
    struct File {
        std::uint64_t size = 0;
        std::string sha256;

        bool operator==(const File&) const = default;
    };

    std::string version;  // of the program that made it
    std::string time;     // of the database's copy, a date-time
    long long jobs = 0;
    long long domains = 0;
    long long certificates = 0;
    std::map<std::string, File> files;  // all but the manifest
};

/// As JSON.
std::string Write(const Manifest& manifest);

/// Errors: Error of code kValue for what `Write` does not give.
Manifest ReadManifest(const std::string& text);

}  // namespace zelvek::moving
