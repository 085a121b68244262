#pragma once

#include <chrono>
#include <string>

namespace zelvek {

/// What a reload command learns about the installation, and what nobody may learn from its output.
struct InstalledCertificate {
    std::string directory;
    std::string name;
    std::string user;
    std::string key;  // PEM
};

/// Runs the command by /bin/sh, with VEK_CERT_DIR, VEK_CERT_NAME and VEK_CERT_USER in its environment.
/// Errors: Error of code kHook: exit status or time limit, and the last lines of its output, unless
/// they hold part of the key.
void RunReload(const std::string& command, std::chrono::seconds limit, const InstalledCertificate& installed);

}  // namespace zelvek
