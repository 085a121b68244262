#include "zelvek/base/folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <memory>

#include "zelvek/base/error.h"

namespace zelvek {

namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

void WriteAll(const Descriptor& target, const std::string& content, const std::filesystem::path& file) {
    for (std::size_t done = 0; done < content.size();) {
        const ssize_t written = ::write(target.get(), content.data() + done, content.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) throw IoError("cannot write", file, errno);
        done += static_cast<std::size_t>(written);
    }
}

}  // namespace

Folder Folder::At(const std::filesystem::path& path) { return {path, zelvek::Open(path, kFolderFlags)}; }

Folder Folder::Open(const std::string& name) const {
    Descriptor opened(::openat(descriptor(), name.c_str(), kFolderFlags | O_NOFOLLOW));
    if (!opened) throw IoError("cannot open", path_ / name, errno);
    return {path_ / name, std::move(opened)};
}

bool Folder::Make(const std::string& name, mode_t mode) const {
    // Nobody else gets in before it has its mode.
    if (::mkdirat(descriptor(), name.c_str(), 0700) != 0) {
        if (errno == EEXIST) return false;
        throw IoError("cannot make the folder", path_ / name, errno);
    }
    // A umask can have taken the right to open it from us, too. Somebody who may write here can have put a
    // link in its place, which is not followed, or a folder of theirs.
    const Descriptor made(
        ::openat(descriptor(), name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!made || ::fstat(made.get(), &status) != 0) throw IoError("cannot open", path_ / name, errno);
    const std::string handle = "/proc/self/fd/" + std::to_string(made.get());
    if (status.st_uid != ::geteuid() || ::chmod(handle.c_str(), mode) != 0)
        throw IoError("cannot set the mode of", path_ / name, status.st_uid != ::geteuid() ? EPERM : errno);
    return true;
}

void Folder::WriteNew(const std::string& name, const std::string& content, mode_t mode) const {
    const Descriptor target(
        ::openat(descriptor(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (!target) throw IoError("cannot open", path_ / name, errno);
    // So far it has this mode less what the umask took away.
    if (::fchmod(target.get(), mode) != 0) throw IoError("cannot set the mode of", path_ / name, errno);
    WriteAll(target, content, path_ / name);
    if (::fsync(target.get()) != 0) throw IoError("cannot write", path_ / name, errno);
}

void Folder::MakeLink(const std::string& target, const std::string& name) const {
    if (::symlinkat(target.c_str(), descriptor(), name.c_str()) == 0) return;
    throw IoError("cannot make the link", path_ / name, errno);
}

void Folder::Rename(const std::string& from, const std::string& to) const {
    if (::renameat(descriptor(), from.c_str(), descriptor(), to.c_str()) == 0) return;
    throw IoError("cannot replace", path_ / to, errno);
}

void Folder::Remove(const std::string& name) const {
    if (::unlinkat(descriptor(), name.c_str(), 0) == 0 || errno == ENOENT) return;
    if (errno != EISDIR) throw IoError("cannot remove", path_ / name, errno);
    const Folder inner = Open(name);
    for (const std::string& file : inner.Names()) {
        if (::unlinkat(inner.descriptor(), file.c_str(), 0) != 0 && errno != ENOENT)
            throw IoError("cannot remove", inner.path() / file, errno);
    }
    if (::unlinkat(descriptor(), name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) return;
    throw IoError("cannot remove", path_ / name, errno);
}

void Folder::SetMode(mode_t mode) const {
    if (::fchmod(descriptor(), mode) != 0) throw IoError("cannot set the mode of", path_, errno);
}

void Folder::Sync() const {
    if (::fsync(descriptor()) != 0) throw IoError("cannot write", path_, errno);
}

struct stat Folder::Status(const std::string& name) const {
    struct stat status {};
    if (::fstatat(descriptor(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 || errno == ENOENT)
        return status;
    throw IoError("cannot look at", path_ / name, errno);
}

struct stat Folder::Status() const {
    struct stat status {};
    if (::fstat(descriptor(), &status) == 0) return status;
    throw IoError("cannot look at", path_, errno);
}

std::string Folder::LinkTarget(const std::string& name) const {
    std::array<char, PATH_MAX> target{};
    const ssize_t size = ::readlinkat(descriptor(), name.c_str(), target.data(), target.size());
    return size < 0 ? "" : std::string(target.data(), static_cast<std::size_t>(size));
}

std::vector<std::string> Folder::Names() const {
    // The listing closes its own descriptor, and its place in the folder is its own.
    Descriptor listed(::openat(descriptor(), ".", kFolderFlags));
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(::fdopendir(listed.get()), &::closedir);
    if (listing == nullptr) throw IoError("cannot read", path_, errno);
    (void)listed.release();
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(listing.get())) {
        const std::string name = static_cast<const char*>(entry->d_name);
        if (name != "." && name != "..") names.push_back(name);
    }
    return names;
}

void MakeFolders(const std::filesystem::path& path, mode_t mode) {
    const std::filesystem::path whole = std::filesystem::absolute(path);
    std::filesystem::path made;
    for (const auto& part : whole) {
        made /= part;
        if (::mkdir(made.c_str(), 0700) == 0) {
            if (::chmod(made.c_str(), mode) != 0) throw IoError("cannot set the mode of", made, errno);
        } else if (errno != EEXIST) {
            throw IoError("cannot make the folder", made, errno);
        }
    }
    if (!std::filesystem::is_directory(whole)) throw IoError("cannot make the folder", whole, ENOTDIR);
}

}  // namespace zelvek
