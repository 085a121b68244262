#include "zelvek/base/service_user.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <list>
#include <string>
#include <system_error>

#include "vek/str.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"

namespace zelvek {

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

std::optional<uid_t> ServiceUserOf(const fs::path& directory) try {
    return OwnerOnSafePath(directory);
} catch (const Error&) {
    return std::nullopt;
}

bool IsServiceUser(const fs::path& directory) {
    Status found{};
    return ::geteuid() == 0 || ::lstat(directory.c_str(), &found) != 0 || found.st_uid == ::geteuid();
}

void RequireAccess(const fs::path& path, int mode, const std::string& deed) {
    if (::euidaccess(path.c_str(), mode) != 0 && errno == EACCES)
        throw Error(Code::kDenied, deed + " needs root or the service's own user: " + path.string() +
                                       " is closed to others");
}

namespace {

/// The user that root has to become; nobody where this process need not become anybody.
std::optional<uid_t> UserToBecome(const fs::path& directory) {
    if (::geteuid() != 0) return std::nullopt;
    Status found{};
    // Root's own service is known by its process, wherever its directory lies.
    if (::lstat(directory.c_str(), &found) != 0 || (S_ISDIR(found.st_mode) && found.st_uid == 0))
        return std::nullopt;
    const uid_t owner = OwnerOnSafePath(directory);
    return owner == 0 ? std::nullopt : std::optional(owner);
}

void WriteAll(int to, const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t written = ::write(to, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR) return;  // nobody reads any more
        if (written > 0) done += static_cast<std::size_t>(written);
    }
}

std::string ReadAll(int from) {
    std::string text;
    std::array<char, 4096> buffer{};
    for (;;) {
        const ssize_t got = ::read(from, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return text;
        text.append(buffer.data(), static_cast<std::size_t>(got));
    }
}

// The first word of what the child says where its work is done; otherwise it is an error's.
constexpr const char* kDone = "done";

std::string Carried(uid_t user, const std::function<std::string()>& work) {
    try {
        Become(user);
        return std::string(kDone) + "\n" + work();
    } catch (const Error& error) {
        return std::string(Word(error.code())) + "\n" + error.sentence();
    } catch (const std::exception& error) {
        return std::string(Word(Code::kInternal)) + "\n" + error.what();
    }
}

}  // namespace

void BecomeServiceUser(const fs::path& directory) {
    if (const auto user = UserToBecome(directory)) Become(*user);
}

std::string AsServiceUser(const fs::path& directory, const std::function<std::string()>& work) {
    const auto user = UserToBecome(directory);
    if (!user) return work();
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw IoError("cannot make a pipe for", directory, errno);
    const Descriptor from(ends[0]);
    Descriptor to(ends[1]);
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        WriteAll(to.get(), Carried(*user, work));
        ::_exit(0);
    }
    if (child < 0) throw IoError("cannot start a process for", directory, errno);
    to = Descriptor();
    std::string said = ReadAll(from.get());
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    const std::string word = str::GetWord(said, '\n');
    if (status != 0 || word.empty())
        throw Error(Code::kInternal, "the process of the service's user has ended by itself");
    if (word != kDone) throw Error(CodeOf(word), said);
    return said;
}

}  // namespace zelvek
