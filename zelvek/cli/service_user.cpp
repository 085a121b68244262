#include "zelvek/cli/service_user.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <list>
#include <string>
#include <system_error>

#include "zelvek/base/error.h"

namespace zelvek::cli {

namespace fs = std::filesystem;

namespace {

constexpr int kMostLinks = 40;  // as the system's own limit

using Status = struct stat;
using Steps = std::list<std::string>;

Steps StepsOf(const fs::path& path) {
    Steps steps;
    for (const fs::path& step : path.relative_path()) {
        if (!step.empty() && step != ".") steps.push_back(step);
    }
    return steps;
}

Status Look(const fs::path& path) {
    Status found{};
    if (::lstat(path.c_str(), &found) != 0) throw IoError("looking at", path, errno);
    return found;
}

[[noreturn]] void Refuse(const fs::path& path, const std::string& fault) {
    throw Error(Code::kIo, path.string() + " " + fault +
                               ", so that root cannot tell whose service it asks; run the command as the "
                               "service's user");
}

/// What is in a directory of root's is what root has put there; in one with the sticky bit (/tmp) others can
/// make new entries, but change nobody else's.
void RequireRoots(const fs::path& path, const Status& found) {
    if (found.st_uid != 0) Refuse(path, "belongs to user id " + std::to_string(found.st_uid));
    if (S_ISLNK(found.st_mode)) return;
    if (!S_ISDIR(found.st_mode)) Refuse(path, "is no directory");
    const bool others_write = (found.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (others_write && (found.st_mode & S_ISVTX) == 0) Refuse(path, "can be written by others than root");
}

/// A way through the file system, on which nothing is taken for granted.
class Walk {
public:
    explicit Walk(const fs::path& path) : rest_(StepsOf(fs::absolute(path))) { RequireRoots(at_, Look(at_)); }

    /// Goes to the end, which may be anybody's directory, and returns what is there.
    Status ToEnd() {
        while (rest_.size() > 1) Step();
        if (rest_.empty() || rest_.front() == "..") Refuse(at_, "is not named by a name");
        // Where others can make entries, though they cannot change each other's (/tmp), this may be
        // anybody's.
        if ((Look(at_).st_mode & (S_IWGRP | S_IWOTH)) != 0) Refuse(at_, "can be written by others than root");
        at_ /= rest_.front();
        return Look(at_);
    }

    const fs::path& at() const { return at_; }

private:
    void Step() {
        const std::string name = rest_.front();
        rest_.pop_front();
        if (name == "..") {
            at_ = at_.parent_path();
            return;
        }
        const fs::path next = at_ / name;
        const Status found = Look(next);
        RequireRoots(next, found);
        S_ISLNK(found.st_mode) ? Follow(next) : Enter(next);
    }

    void Enter(const fs::path& directory) { at_ = directory; }

    void Follow(const fs::path& link) {
        if (++links_ > kMostLinks) throw IoError("looking at", link, ELOOP);
        const fs::path target = fs::read_symlink(link);
        if (target.is_absolute()) at_ = "/";
        rest_.splice(rest_.begin(), StepsOf(target));
    }

    fs::path at_ = "/";
    Steps rest_;
    int links_ = 0;
};

void Become(uid_t user) {
    const passwd* entry = ::getpwuid(user);  // no other thread asks
    if (entry == nullptr) {
        throw Error(Code::kIo, "the service's user, id " + std::to_string(user) +
                                   ", is not known to this machine, so that root cannot act as that user");
    }
    const gid_t group = entry->pw_gid;
    const bool done = ::initgroups(entry->pw_name, group) == 0 && ::setgid(group) == 0 && ::setuid(user) == 0;
    if (!done) throw IoError("becoming the service's user, id", std::to_string(user), errno);
    if (::getuid() != user || ::geteuid() != user || ::getgid() != group || ::setuid(0) == 0)
        throw Error(Code::kIo, "root could not become the service's user, id " + std::to_string(user));
}

}  // namespace

uid_t OwnerOnSafePath(const fs::path& directory) {
    Walk walk(directory);
    const Status found = walk.ToEnd();
    if (S_ISLNK(found.st_mode)) Refuse(walk.at(), "is a symbolic link");
    if (!S_ISDIR(found.st_mode)) Refuse(walk.at(), "is no directory");
    return found.st_uid;
}

void BecomeServiceUser(const fs::path& run_directory) {
    if (::geteuid() != 0) return;
    Status found{};
    // Root's own service is known by its process, wherever its directory lies.
    if (::lstat(run_directory.c_str(), &found) != 0 || (S_ISDIR(found.st_mode) && found.st_uid == 0)) return;
    if (const uid_t owner = OwnerOnSafePath(run_directory); owner != 0) Become(owner);
}

}  // namespace zelvek::cli
