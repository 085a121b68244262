#include "zelvek/certificates/installed.h"

#include <sys/stat.h>

#include <algorithm>

#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"
#include "zelvek/base/folder.h"
#include "zelvek/base/names.h"
#include "zelvek/certificates/chain.h"

namespace zelvek::install {

namespace {

constexpr std::size_t kLargestFile = 256UL << 10;
constexpr int kTries = 10;  // a folder that is being read goes when two newer ones have come

/// Whether an installation can have this name.
bool CanBeInstalled(const InstalledName& name) {
    try {
        return names::FolderName("user", name.user) == name.user &&
               names::CertificateFolder(name.folder) == name.folder;
    } catch (const Error&) {
        return false;
    }
}

std::optional<Installed> Read(const Folder& parent, const std::string& target) {
    const Folder folder = parent.Open(target);
    const std::filesystem::path opened = "/proc/self/fd/" + std::to_string(folder.descriptor());
    const auto certificates = ReadSmallFile(opened / "fullchain.pem", kLargestFile);
    const auto key = ReadSmallFile(opened / "privkey.pem", kLargestFile);
    if (!certificates || !key) return std::nullopt;
    SortChain(*certificates, *key);
    return Installed{*certificates, *key};
}

}  // namespace

std::vector<InstalledName> InstalledNames(const Settings& settings) {
    const Folder directory = Folder::At(settings.directory);
    std::vector<InstalledName> found;
    for (const std::string& user : directory.Names()) {
        if (!S_ISDIR(directory.Status(user).st_mode)) continue;
        const Folder parent = directory.Open(user);
        for (const std::string& folder : parent.Names()) {
            if (S_ISLNK(parent.Status(folder).st_mode) && CanBeInstalled({user, folder}))
                found.push_back({user, folder});
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::optional<Installed> ReadInstalled(const Settings& settings, const InstalledName& name) {
    if (!CanBeInstalled(name)) return std::nullopt;
    for (int rest = kTries; rest > 0; --rest) {
        try {
            const Folder parent = Folder::At(settings.directory).Open(name.user);
            const std::string target = parent.LinkTarget(name.folder);
            if (!target.starts_with("." + name.folder + ".") || target.find('/') != std::string::npos)
                return std::nullopt;
            if (auto installed = Read(parent, target)) return installed;
        } catch (const Error&) {
            // Gone meanwhile, or never whole: another look tells.
        }
    }
    return std::nullopt;
}

}  // namespace zelvek::install
