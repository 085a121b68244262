#include "zelvek/base/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <thread>
#include <utility>

#include "zelvek/base/error.h"

namespace zelvek {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kPause{20};  // between two tries

/// Opens a lock's file. A file that others made, or can open, is refused rather than mended: somebody may
/// have it open already.
Descriptor OpenOwn(const std::filesystem::path& file) {
    Descriptor opened = Open(file, O_RDWR | O_CREAT | O_NOFOLLOW, 0600);
    struct stat status {};
    if (::fstat(opened.get(), &status) != 0) throw IoError("cannot lock", file, errno);
    const bool own = S_ISREG(status.st_mode) && status.st_uid == ::geteuid() && (status.st_mode & 077) == 0;
    // An odd umask may have taken even its owner's right to open it again.
    if (own && ::fchmod(opened.get(), 0600) == 0) return opened;
    throw Error(Code::kIo, "cannot lock " + file.string() +
                               ": it has to be a file that its owner, this process's user, alone can open");
}

bool TryLock(const Descriptor& opened, const std::filesystem::path& file) {
    if (::flock(opened.get(), LOCK_EX | LOCK_NB) == 0) return true;
    if (errno == EWOULDBLOCK || errno == EINTR) return false;
    throw IoError("cannot lock", file, errno);
}

bool LockWithin(const Descriptor& opened, const std::filesystem::path& file, milliseconds limit) {
    const auto end = steady_clock::now() + limit;
    while (!TryLock(opened, file)) {
        if (steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

}  // namespace

FileLock::FileLock(Descriptor locked) : locked_(std::move(locked)) {}

FileLock::FileLock(const std::filesystem::path& file, const std::string& taken) : locked_(OpenOwn(file)) {
    if (!LockWithin(locked_, file, kAfterlife)) throw Error(Code::kBusy, taken);
}

FileLock FileLock::WaitFor(const std::filesystem::path& file, milliseconds limit) {
    Descriptor opened = OpenOwn(file);
    if (!LockWithin(opened, file, limit))
        throw Error(Code::kBusy, "somebody keeps the lock " + file.string());
    return FileLock(std::move(opened));
}

}  // namespace zelvek
