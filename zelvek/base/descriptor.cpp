#include "zelvek/base/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
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

std::optional<std::string> ReadSmallFile(const std::filesystem::path& file, std::size_t most) {
    const Descriptor opened(::open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!opened || ::fstat(opened.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    std::string content(most + 1, '\0');  // it may grow meanwhile
    std::size_t size = 0;
    for (ssize_t got = 1; got > 0 && size < content.size();) {
        got = ::read(opened.get(), content.data() + size, content.size() - size);
        if (got < 0) return std::nullopt;
        size += static_cast<std::size_t>(got);
    }
    if (size > most) return std::nullopt;
    content.resize(size);
    return content;
}

}  // namespace zelvek
