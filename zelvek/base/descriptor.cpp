#include "zelvek/base/descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "zelvek/base/error.h"

namespace zelvek {

Descriptor::~Descriptor() {
    if (fd_ < 0) return;
    const int before = errno;
    ::close(fd_);
    errno = before;
}

Descriptor Open(const std::filesystem::path& path, int flags, mode_t mode) {
    Descriptor opened(::open(path.c_str(), flags | O_CLOEXEC, mode));
    if (!opened) throw IoError("cannot open", path, errno);
    return opened;
}

}  // namespace zelvek
