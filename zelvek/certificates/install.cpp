#include "zelvek/certificates/install.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "vek/str.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"
#include "zelvek/base/file_lock.h"
#include "zelvek/base/folder.h"
#include "zelvek/base/log.h"
#include "zelvek/base/names.h"
#include "zelvek/base/text.h"
#include "zelvek/certificates/chain.h"
#include "zelvek/certificates/placeholder.h"

namespace zelvek::install {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMarkBytes = 4;  // of a staging folder's name, random, written as 8 digits
constexpr const char* kLinkSuffix = ".link";
constexpr const char* kLockName = ".lock";
constexpr std::chrono::seconds kLockLimit{60};  // an installation takes milliseconds, a sick disk longer
constexpr std::size_t kLargestCertificate = 256UL << 10;
constexpr mode_t kFolderMode = 0755;  // web servers read there

/// Whoever owns a folder can put anything in a name's place there, and so can everybody where all may write.
void CheckTrusted(const Settings& settings, const Folder& folder) {
    const struct stat status = folder.Status();
    const std::string where = folder.path().string();
    if ((status.st_mode & S_IWOTH) != 0) throw Error(Code::kIo, where + " can be written by everybody");
    const bool trusted =
        status.st_uid == ::geteuid() || status.st_uid == 0 ||
        std::find(settings.owners.begin(), settings.owners.end(), status.st_uid) != settings.owners.end();
    if (trusted) return;
    throw Error(Code::kIo, where + " belongs to the user with id " + std::to_string(status.st_uid) +
                               ", whom no --certs-owner names");
}

/// The folder where certificates are installed, made where it is missing.
Folder OpenDirectory(const Settings& settings) {
    MakeFolders(settings.directory, kFolderMode);
    Folder directory = Folder::At(settings.directory);
    CheckTrusted(settings, directory);
    return directory;
}

Folder OpenUser(const Settings& settings, const Folder& directory, const std::string& user) {
    if (directory.Make(user, kFolderMode)) directory.Sync();
    Folder folder = directory.Open(user);
    CheckTrusted(settings, folder);
    return folder;
}

/// Installations come one after the other, whichever process they are in.
FileLock Lock(const Settings& settings) {
    return FileLock::WaitFor(settings.directory / kLockName, kLockLimit);
}

/// The folder of a new installation, `.<certname>.<8 digits>`, and the symbolic link to it that is renamed to
/// `<certname>` when the folder is complete. Both are removed again unless that is done.
class Staging {
public:
    Staging(const Folder& parent, const std::string& certificate)
        : parent_(parent),
          name_("." + certificate + "." + str::hex::Encode(str::Random(kMarkBytes))),
          link_(name_ + kLinkSuffix) {
        // Complete folders are open to others; one that is not has a service that died to thank.
        if (!parent.Make(name_, kIncompleteMode)) throw Error(Code::kIo, name_ + " is in the way");
    }

    ~Staging() {
        if (in_place_) return;
        try {
            parent_.Remove(name_);
            parent_.Remove(link_);
        } catch (const Error& error) {
            Log(std::string("left behind: ") + error.what());  // the next start removes it
        }
    }

    Staging(const Staging&) = delete;
    Staging& operator=(const Staging&) = delete;

    void Fill(const CertificateChain& chain) const {
        const Folder folder = parent_.Open(name_);
        if (folder.Status().st_uid != ::geteuid())
            throw Error(Code::kIo, folder.path().string() + " was exchanged");
        folder.WriteNew("privkey.pem", chain.key, 0600);
        folder.WriteNew("cert.pem", chain.leaf, 0644);
        folder.WriteNew("chain.pem", chain.others, 0644);
        folder.WriteNew("fullchain.pem", chain.leaf + chain.others, 0644);
        folder.SetMode(kFolderMode);
        folder.Sync();
    }

    /// The link points to the folder by its name alone, so that the whole tree can be moved.
    void PutInPlace(const std::string& certificate) {
        parent_.MakeLink(name_, link_);
        parent_.Rename(link_, certificate);
        in_place_ = true;
        parent_.Sync();
    }

    const std::string& name() const { return name_; }

    static constexpr mode_t kIncompleteMode = 0700;

private:
    const Folder& parent_;
    std::string name_;
    std::string link_;
    bool in_place_ = false;
};

/// The certificate whose staging folder, or its link, an entry is: "a.b" for ".a.b.0123abcd" and
/// ".a.b.0123abcd.link". Empty for every other entry.
std::string CertificateOfStaging(std::string entry) {
    if (entry.ends_with(kLinkSuffix)) entry.resize(entry.size() - std::string(kLinkSuffix).size());
    const std::size_t dot = entry.rfind('.');
    const bool staging = entry.starts_with('.') && dot != 0 && dot + 1 + 2 * kMarkBytes == entry.size() &&
                         entry.find_first_not_of("0123456789abcdef", dot + 1) == std::string::npos;
    return staging ? entry.substr(1, dot - 1) : "";
}

/// Removes what earlier installations and killed services left. What cannot be removed keeps nothing else.
void RemoveAll(const Folder& parent, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        try {
            parent.Remove(name);
        } catch (const Error& error) {
            Log(std::string("left behind: ") + error.what());
        }
    }
}

void RemoveEarlier(const Folder& parent, const std::string& certificate, const std::string& current,
                   const std::string& previous) {
    std::vector<std::string> names = parent.Names();
    std::erase_if(names, [&](const std::string& name) {
        return name == current || name == previous || CertificateOfStaging(name) != certificate;
    });
    RemoveAll(parent, names);
}

/// What was not finished. Finished folders stay: the link's, and the one before it for whoever still reads
/// there.
void RemoveUnfinished(const Folder& parent) {
    std::vector<std::string> names = parent.Names();
    std::erase_if(names, [&](const std::string& name) {
        const std::string certificate = CertificateOfStaging(name);
        if (certificate.empty() || parent.LinkTarget(certificate) == name) return true;
        return S_ISDIR(parent.Status(name).st_mode) &&
               (parent.Status(name).st_mode & 07777) != Staging::kIncompleteMode;
    });
    RemoveAll(parent, names);
}

/// The folder that the link points to now; empty where there is no link yet. Errors: Error where something
/// else stands there, which is not replaced.
std::string PreviousFolder(const Folder& parent, const std::string& certificate) {
    const mode_t mode = parent.Status(certificate).st_mode;
    if (mode == 0) return "";
    if (S_ISLNK(mode)) return parent.LinkTarget(certificate);
    throw Error(Code::kIo, (parent.path() / certificate).string() + " is in the way: it is no symbolic link");
}

void PutInPlace(const Folder& parent, const std::string& certificate, const CertificateChain& chain) {
    const std::string previous = PreviousFolder(parent, certificate);
    Staging staging(parent, certificate);
    staging.Fill(chain);
    staging.PutInPlace(certificate);
    // The previous folder stays for whoever is still reading it.
    RemoveEarlier(parent, certificate, staging.name(), previous);
}

void CheckNames(const CertificateChain& chain, const std::vector<std::string>& names) {
    std::string missing;
    for (const std::string& name : names) {
        if (!chain.Covers(name)) str::inpl::Append(missing, Printable(name), ", ");
    }
    if (!missing.empty())
        throw Error(Code::kBadNames, "the certificate is not for all names: " + missing + " missing");
}

}  // namespace

std::filesystem::path PlaceOf(const Settings& settings, const std::string& user,
                              const std::string& certname) {
    return fs::absolute(settings.directory / names::FolderName("the user's name", user) /
                        names::CertificateFolder(certname));
}

namespace {

/// Whether what is there already is replaced.
enum class Replace { kYes, kNo };

/// What was installed; nothing where something was there that was not to be replaced.
std::optional<InstalledCertificate> InstallOrFail(const Settings& settings, const Request& request,
                                                  Replace replace) {
    const std::string user = names::FolderName("the user's name", request.user);
    const std::string name = names::CertificateFolder(request.certname);
    const CertificateChain chain = SortChain(request.certificates, request.key);
    CheckNames(chain, request.names);

    const Folder directory = OpenDirectory(settings);
    const FileLock lock = Lock(settings);
    const Folder parent = OpenUser(settings, directory, user);
    if (replace == Replace::kNo && parent.Status(name).st_mode != 0) return std::nullopt;
    PutInPlace(parent, name, chain);
    return InstalledCertificate{PlaceOf(settings, user, request.certname), request.certname, user, chain.key};
}

std::optional<InstalledCertificate> InstallAs(const Settings& settings, const Request& request,
                                              Replace replace) {
    try {
        return InstallOrFail(settings, request, replace);
    } catch (const Error& error) {
        throw Error(error.code(),
                    "installing the certificate of " + Printable(request.certname) + ": " + error.what());
    }
}

}  // namespace

InstalledCertificate Install(const Settings& settings, const Request& request) {
    return *InstallAs(settings, request, Replace::kYes);
}

bool InstallWhereNone(const Settings& settings, const Request& request) {
    return InstallAs(settings, request, Replace::kNo).has_value();
}

bool IsTaken(const Settings& settings, const std::string& user, const std::string& certname) {
    std::error_code error;
    return fs::symlink_status(PlaceOf(settings, user, certname), error).type() != fs::file_type::not_found;
}

bool Remove(const Settings& settings, const std::string& user, const std::string& certname) {
    const std::string owner = names::FolderName("the user's name", user);
    const std::string certificate = names::CertificateFolder(certname);
    const Folder directory = OpenDirectory(settings);
    const FileLock lock = Lock(settings);
    if (directory.Status(owner).st_mode == 0) return false;
    const Folder parent = directory.Open(owner);
    CheckTrusted(settings, parent);
    const std::string target = PreviousFolder(parent, certificate);
    if (!target.empty() && CertificateOfStaging(target) != certificate) {
        throw Error(Code::kIo, (parent.path() / certificate).string() + " stays: it leads to " +
                                   Printable(target) + ", which is no installation");
    }
    std::vector<std::string> names = parent.Names();
    std::erase_if(names, [&](const std::string& name) { return CertificateOfStaging(name) != certificate; });
    if (target.empty() && names.empty()) return false;
    // The link first: nobody is to find half a certificate.
    parent.Remove(certificate);
    for (const std::string& name : names) parent.Remove(name);
    parent.Sync();
    return true;
}

bool IsInstalled(const Settings& settings, const Request& request) {
    const auto leaf =
        ReadSmallFile(PlaceOf(settings, request.user, request.certname) / "cert.pem", kLargestCertificate);
    return leaf && !leaf->empty() && request.certificates.find(*leaf) != std::string::npos;
}

namespace {

/// What `read` makes of the certificate that is installed there; a placeholder is none. The folder's owner
/// may have put anything there.
template <class Made>
std::optional<Made> OfInstalled(const fs::path& place, Made (*read)(const std::string&)) {
    const auto certificate = ReadSmallFile(place / "cert.pem", kLargestCertificate);
    if (!certificate || IsPlaceholder(*certificate)) return std::nullopt;
    return read(*certificate);
}

}  // namespace

std::optional<Lifetime> InstalledLifetime(const Settings& settings, const std::string& user,
                                          const std::string& certname) try {
    return OfInstalled(PlaceOf(settings, user, certname), &LifetimeOf);
} catch (const Error&) {
    return std::nullopt;
}

std::optional<Description> DescribeInstalled(const Settings& settings, const std::string& user,
                                             const std::string& certname) try {
    return OfInstalled(PlaceOf(settings, user, certname), &Describe);
} catch (const Error&) {
    return std::nullopt;
}

std::string InstalledRenewalName(const Settings& settings, const std::string& user,
                                 const std::string& certname) try {
    return OfInstalled(PlaceOf(settings, user, certname), &RenewalNameOf).value_or("");
} catch (const Error&) {
    return "";
}

bool HoldsPlaceholder(const Settings& settings, const std::string& user, const std::string& certname) try {
    const auto there = ReadSmallFile(PlaceOf(settings, user, certname) / "cert.pem", kLargestCertificate);
    return there && IsPlaceholder(*there);
} catch (const Error&) {
    return false;
}

void RemoveLeftovers(const Settings& settings) {
    const Folder directory = OpenDirectory(settings);
    const FileLock lock = Lock(settings);
    for (const std::string& user : directory.Names()) {
        if (S_ISDIR(directory.Status(user).st_mode)) RemoveUnfinished(directory.Open(user));
    }
}

}  // namespace zelvek::install
