#pragma once

#include <chrono>
#include <filesystem>
#include <string>

/// Installation of certificates where web servers read them.
namespace zelvek::install {

struct Settings {
    std::filesystem::path directory;
    std::string reload_command;  // run by /bin/sh after an installation; empty for none
    std::chrono::seconds reload_limit{60};
};

struct Request {
    std::string user;
    std::string certname;      // its ASCII form names the folder
    std::string certificates;  // PEM, any number, any order: crt and cacrt together
    std::string key;           // PEM
};

/// Checks that key, certificate and chain belong together (the certificate that matches the key is the leaf,
/// the others follow in issuing order) and puts them in place in one step: `<directory>/<user>/<certname>` is
/// a symbolic link, exchanged by rename, to a folder with `fullchain.pem` (leaf first), `cert.pem`,
/// `chain.pem` (mode 0644) and `privkey.pem` (mode 0600), all synchronised to disk; folders of earlier
/// installations but the last are removed. Then it runs the reload command with VEK_CERT_DIR, VEK_CERT_NAME
/// and VEK_CERT_USER in its environment. Errors: Error of code kBadKey (no key, or no certificate belongs to
/// it), kBadChain (not a certificate, or not of the leaf's chain), kValue (a user or a name that cannot be a
/// folder's name), kIo, kHook (the certificate is in place, but the reload command failed or took too long:
/// its exit status and last output).
void Install(const Settings& settings, const Request& request);

}  // namespace zelvek::install
