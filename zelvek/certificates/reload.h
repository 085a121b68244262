#pragma once

#include <chrono>
#include <string>

namespace zelvek {

/// What the reload command gets to know of an installation; and the key, because no output that shows it may
/// be passed on.
struct InstalledCertificate {
    std::string directory;
    std::string name;
    std::string user;
    std::string key;  // PEM
};

/// Runs the command by /bin/sh, with VEK_CERT_DIR, VEK_CERT_NAME and VEK_CERT_USER in its environment.
/// Returns what went wrong, empty where nothing did: the exit status or the time limit, and the last lines of
/// the output, unless they show a key.
std::string RunReload(const std::string& command, std::chrono::seconds limit,
                      const InstalledCertificate& installed);

}  // namespace zelvek
