#include "zelvek/base/durable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "vek/str.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/base/error.h"

namespace zelvek::durable {
namespace {

void WriteAll(const Descriptor& target, const std::string& content, const std::filesystem::path& file) {
    for (std::size_t done = 0; done < content.size();) {
        const ssize_t written = write(target.get(), content.data() + done, content.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) throw IoError("cannot write", file, errno);
        done += static_cast<std::size_t>(written);
    }
}

}  // namespace

void WriteNew(const std::filesystem::path& file, const std::string& content, mode_t mode) {
    const Descriptor target = Open(file, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
    // So far it has this mode less what the umask took away.
    if (fchmod(target.get(), mode) != 0) throw IoError("cannot set the mode of", file, errno);
    WriteAll(target, content, file);
    if (fsync(target.get()) != 0) throw IoError("cannot write", file, errno);
}

void Replace(const std::filesystem::path& file, const std::string& content, mode_t mode) {
    const std::filesystem::path fresh = file.parent_path() / (".new-" + str::hex::Encode(str::Random(8)));
    try {
        WriteNew(fresh, content, mode);
        if (rename(fresh.c_str(), file.c_str()) != 0) throw IoError("cannot write", file, errno);
    } catch (const Error&) {
        unlink(fresh.c_str());
        throw;
    }
    SyncFolder(file.parent_path());
}

void SyncFolder(const std::filesystem::path& folder) {
    const Descriptor opened = Open(folder, O_RDONLY | O_DIRECTORY);
    if (fsync(opened.get()) != 0) throw IoError("cannot write", folder, errno);
}

}  // namespace zelvek::durable
