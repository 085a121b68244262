#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// Certificates in files that others have made, read as they lie. They are to be read before the service is
/// asked anything: root's process is one of the service's user from then on.
namespace zelvek::cli {

/// One certificate to be taken over.
struct ImportSource {
    std::string name;          // its own in its folder; empty for a certificate of which only files are known
    std::string certificates;  // PEM blocks
    std::string key;           // the same
    std::string check;         // "dns" where it was proved so, else empty
    std::string obstacle;      // why it cannot be read; empty where it can
};

/// The files of one certificate; `chain` may be empty. Of each the blocks that belong there are taken, so the
/// same file can be all of them. What cannot be read is the source's obstacle.
ImportSource ReadCertificateFiles(const std::filesystem::path& certificate, const std::filesystem::path& key,
                                  const std::filesystem::path& chain);

/// All certificates of a folder as Let's Encrypt's own client keeps it, by name: `live/NAME/fullchain.pem`,
/// `live/NAME/privkey.pem`, and `renewal/NAME.conf`, which says how they were proved. Errors: Error of code
/// kIo where there is no such folder, or it cannot be read.
std::vector<ImportSource> ReadLetsencryptFolder(const std::filesystem::path& folder);

/// The domain that a certificate's name in such a folder stands for: without the "-0001" of a second one.
std::string DomainOfName(const std::string& name);

}  // namespace zelvek::cli
