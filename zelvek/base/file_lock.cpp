#include "zelvek/base/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "zelvek/base/error.h"

namespace zelvek {

namespace {

[[noreturn]] void Fail(const std::string& deed, const std::filesystem::path& path, int error) {
    throw Error(Code::kIo, deed + " " + path.string() + ": " + std::generic_category().message(error));
}

}  // namespace

FileLock::FileLock(const std::filesystem::path& file, const std::string& taken)
    : fd_(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)) {
    if (fd_ < 0) Fail("opening", file, errno);
    if (::flock(fd_, LOCK_EX | LOCK_NB) == 0) return;
    const int error = errno;
    ::close(fd_);
    if (error == EWOULDBLOCK) throw Error(Code::kBusy, taken);
    Fail("locking", file, error);
}

FileLock::~FileLock() { ::close(fd_); }

}  // namespace zelvek
