#include "zelvek/base/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <utility>

#include "zelvek/base/error.h"

namespace zelvek {

FileLock::FileLock(Descriptor locked) : locked_(std::move(locked)) {}

FileLock::FileLock(const std::filesystem::path& file, const std::string& taken)
    : locked_(Open(file, O_RDWR | O_CREAT | O_NOFOLLOW, 0600)) {
    if (::flock(locked_.get(), LOCK_EX | LOCK_NB) == 0) return;
    if (errno == EWOULDBLOCK) throw Error(Code::kBusy, taken);
    throw IoError("cannot lock", file, errno);
}

FileLock FileLock::WaitFor(const std::filesystem::path& folder) {
    Descriptor opened = Open(folder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    while (::flock(opened.get(), LOCK_EX) != 0) {
        if (errno != EINTR) throw IoError("cannot lock", folder, errno);
    }
    return FileLock(std::move(opened));
}

}  // namespace zelvek
