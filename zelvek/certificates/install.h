#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "zelvek/certificates/chain.h"
#include "zelvek/certificates/reload.h"

/// Installation of certificates where web servers read them.
namespace zelvek::install {

struct Settings {
    std::filesystem::path directory;
    // Users beside this process's own and root to whom folders below may belong.
    std::vector<uid_t> owners = {};
};

struct Request {
    std::string user;
    std::string certname;      // its ASCII form names the folder
    std::string certificates;  // PEM, any number, any order: crt and cacrt together
    std::string key;           // PEM
    // What the certificate is for, canonical, wildcards as "*.example.org"; empty where nobody knows.
    std::vector<std::string> names = {};
};

/// Checks that key, certificate and chain belong together (the certificate that matches the key is the leaf,
/// the others follow in issuing order) and that the leaf has the names, and puts them in place in one step:
/// `<directory>/<user>/<certname>` is a symbolic link, exchanged by rename, to a folder with `fullchain.pem`
/// (leaf first), `cert.pem`, `chain.pem` (mode 0644) and `privkey.pem` (mode 0600), all synchronised to disk;
/// folders of earlier installations but the last are removed. Folders have mode 0755. Returns the place and
/// what belongs there, for the reload command.
/// Errors: Error of code kBadKey (no key, or no certificate belongs to it), kBadChain (not a certificate, or
/// not of the leaf's chain), kBadNames (the leaf lacks names, which are told), kValue (a user or a name that
/// cannot be a folder's name), kIo (also for a folder of a foreign owner, or one that everybody may write),
/// kBusy.
InstalledCertificate Install(const Settings& settings, const Request& request);

/// The same where nothing is in its place, whatever that would be; returns whether it was put there. For
/// placeholders, which must replace nothing. Errors: as `Install`.
bool InstallWhereNone(const Settings& settings, const Request& request);

/// Whether anything is there. Errors: Error of code kValue.
bool IsTaken(const Settings& settings, const std::string& user, const std::string& certname);

/// Where `Install` puts a certificate. Errors: Error of code kValue.
std::filesystem::path PlaceOf(const Settings& settings, const std::string& user, const std::string& certname);

/// Whether the certificate that is installed there is among the request's.
bool IsInstalled(const Settings& settings, const Request& request);

/// When the certificate that is installed there holds; nothing where none can be read. A placeholder is none,
/// here and below.
std::optional<Lifetime> InstalledLifetime(const Settings& settings, const std::string& user,
                                          const std::string& certname);

/// Its name at the authority's renewal information (`RenewalNameOf`); empty where none is known.
std::string InstalledRenewalName(const Settings& settings, const std::string& user,
                                 const std::string& certname);

/// What is installed there; nothing where none can be read.
std::optional<Description> DescribeInstalled(const Settings& settings, const std::string& user,
                                             const std::string& certname);

/// Whether a placeholder is installed there.
bool HoldsPlaceholder(const Settings& settings, const std::string& user, const std::string& certname);

/// Removes what `Install` has put there: the link to the installation, and the folders of installations. What
/// else stands in the way stays, as does whatever a link leads to that is no installation's. Says whether
/// there was anything. Errors: Error of code kValue, kIo (as `Install`), kBusy.
bool Remove(const Settings& settings, const std::string& user, const std::string& certname);

/// Removes what killed services have left of installations. Errors: Error of code kIo, kBusy.
void RemoveLeftovers(const Settings& settings);

}  // namespace zelvek::install
