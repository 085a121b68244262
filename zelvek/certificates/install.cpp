#include "zelvek/certificates/install.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "vek/err.h"
#include "vek/str.h"
#include "zelvek/base/durable.h"
#include "zelvek/base/error.h"
#include "zelvek/base/file_lock.h"
#include "zelvek/base/text.h"
#include "zelvek/certificates/chain.h"
#include "zelvek/certificates/reload.h"

namespace zelvek::install {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestName = 230;  // leaves room for what a staging folder's name adds
constexpr std::size_t kMarkBytes = 4;      // of a staging folder's name, random, written as 8 digits
constexpr const char* kLinkSuffix = ".link";

/// `name`, where it can be the name of a folder. Names with a leading dot are for the staging folders;
/// control characters could make a log or a listing show something else.
std::string FolderName(const std::string& what, const std::string& name) {
    const bool plain =
        std::none_of(name.begin(), name.end(), [](char c) { return c == '/' || IsControl(c); });
    if (name.empty() || name.front() == '.' || name.size() > kLongestName || !plain) {
        throw Error(Code::kValue, what + " \"" + Printable(name) + "\" cannot be a folder's name");
    }
    return name;
}

std::string CertificateFolder(const std::string& certname) {
    std::string ascii;
    try {
        ascii = str::puny::Encode(certname);
    } catch (const vek_err::Error& error) {
        throw Error(Code::kValue, Printable(error.what()));
    }
    // A script that forgets its quotes would take a "*" in a path for a pattern.
    if (ascii.starts_with("*.")) ascii.replace(0, 1, "_wildcard");
    return FolderName("the certificate's name", ascii);
}

/// Makes the folder if it is missing; its parent has to be there.
void EnsureFolder(const fs::path& folder) {
    if (mkdir(folder.c_str(), 0755) != 0) {
        if (errno == EEXIST) return;
        throw IoError("cannot make the folder", folder, errno);
    }
    if (chmod(folder.c_str(), 0755) != 0) throw IoError("cannot set the mode of", folder, errno);
    durable::SyncFolder(fs::absolute(folder).parent_path());
}

/// The folder of a new installation, `.<certname>.<8 digits>`, and the symbolic link to it that is renamed to
/// `<certname>` when the folder is complete. Both are removed again unless that is done.
class Staging {
public:
    Staging(const fs::path& parent, const std::string& name)
        : folder_(parent / ("." + name + "." + str::hex::Encode(str::Random(kMarkBytes)))),
          link_(folder_.string() + kLinkSuffix) {
        if (mkdir(folder_.c_str(), 0700) != 0) throw IoError("cannot make the folder", folder_, errno);
    }

    ~Staging() {
        std::error_code ignored;  // what stays is removed by the next installation
        if (!in_place_) fs::remove_all(folder_, ignored);
        if (!in_place_) fs::remove(link_, ignored);
    }

    Staging(const Staging&) = delete;
    Staging& operator=(const Staging&) = delete;

    void Fill(const CertificateChain& chain) const {
        durable::WriteNew(folder_ / "privkey.pem", chain.key, 0600);
        durable::WriteNew(folder_ / "cert.pem", chain.leaf, 0644);
        durable::WriteNew(folder_ / "chain.pem", chain.others, 0644);
        durable::WriteNew(folder_ / "fullchain.pem", chain.leaf + chain.others, 0644);
        if (chmod(folder_.c_str(), 0755) != 0) throw IoError("cannot set the mode of", folder_, errno);
        durable::SyncFolder(folder_);
    }

    /// The link points to the folder by its name alone, so that the whole tree can be moved.
    void PutInPlace(const fs::path& place) {
        if (symlink(folder_.filename().c_str(), link_.c_str()) != 0)
            throw IoError("cannot make the link", link_, errno);
        if (rename(link_.c_str(), place.c_str()) != 0) throw IoError("cannot replace", place, errno);
        in_place_ = true;
        durable::SyncFolder(place.parent_path());
    }

    std::string Name() const { return folder_.filename(); }

private:
    fs::path folder_;
    fs::path link_;
    bool in_place_ = false;
};

/// Whether an entry is a staging folder, or its link, of just this certificate: ".a.b.0123abcd" belongs to
/// "a.b", not to "a".
bool IsStagingOf(const std::string& certificate, const std::string& entry) {
    const std::string prefix = "." + certificate + ".";
    if (!entry.starts_with(prefix)) return false;
    const std::string mark = entry.substr(prefix.size(), 2 * kMarkBytes);
    const std::string rest = entry.substr(prefix.size() + mark.size());
    return mark.size() == 2 * kMarkBytes && mark.find_first_not_of("0123456789abcdef") == std::string::npos &&
           (rest.empty() || rest == kLinkSuffix);
}

/// Removes what earlier installations and killed services left. The next installation tries again what cannot
/// be removed now.
void RemoveLeftovers(const fs::path& parent, const std::string& name, const std::string& current,
                     const std::string& previous) {
    std::error_code ignored;
    std::vector<fs::path> leftovers;
    for (fs::directory_iterator entry(parent, ignored); entry != end(entry); entry.increment(ignored)) {
        const std::string file = entry->path().filename();
        const bool in_use = file == current || file == previous;
        if (!in_use && IsStagingOf(name, file)) leftovers.push_back(entry->path());
    }
    for (const fs::path& leftover : leftovers) fs::remove_all(leftover, ignored);
}

/// The folder that the link points to now; empty where there is no link yet. Errors: Error where something
/// else stands there, which is not replaced.
std::string PreviousFolder(const fs::path& place) {
    std::error_code error;
    const fs::file_status status = fs::symlink_status(place, error);
    if (status.type() == fs::file_type::not_found) return "";
    if (status.type() != fs::file_type::symlink) {
        throw Error(Code::kIo, place.string() + " is in the way: it is no symbolic link");
    }
    return fs::read_symlink(place, error).string();
}

void PutInPlace(const fs::path& parent, const std::string& name, const CertificateChain& chain) {
    // Installations of one user come one after the other, whichever process they are in.
    const FileLock lock = FileLock::WaitFor(parent);
    const std::string previous = PreviousFolder(parent / name);
    Staging staging(parent, name);
    staging.Fill(chain);
    staging.PutInPlace(parent / name);
    // The previous folder stays for whoever is still reading it.
    RemoveLeftovers(parent, name, staging.Name(), previous);
}

void InstallOrFail(const Settings& settings, const Request& request) {
    const std::string user = FolderName("the user's name", request.user);
    const std::string name = CertificateFolder(request.certname);
    const CertificateChain chain = SortChain(request.certificates, request.key);

    EnsureFolder(settings.directory);
    EnsureFolder(settings.directory / user);
    PutInPlace(settings.directory / user, name, chain);

    if (settings.reload_command.empty()) return;
    const std::string directory = fs::absolute(settings.directory / user / name);
    RunReload(settings.reload_command, settings.reload_limit, {directory, request.certname, user, chain.key});
}

}  // namespace

void Install(const Settings& settings, const Request& request) {
    try {
        InstallOrFail(settings, request);
    } catch (const Error& error) {
        throw Error(error.code(),
                    "installing the certificate of " + Printable(request.certname) + ": " + error.what());
    }
}

}  // namespace zelvek::install
