#include "zelvek/base/durable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "vek/str.h"
#include "zelvek/base/error.h"

namespace zelvek::durable {
namespace {

void WriteAll(const Descriptor& target, const std::string& content, const std::filesystem::path& file) {
    for (std::size_t done = 0; done < content.size();) {
        const ssize_t written = write(target.get(), content.data() + done, content.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) Fail("write", file);
        done += static_cast<std::size_t>(written);
    }
}

}  // namespace

void Fail(const std::string& what, const std::filesystem::path& path) {
    const std::string reason = std::generic_category().message(errno);
    throw Error(Code::kIo, "cannot " + what + " " + path.string() + ": " + reason);
}

Descriptor::Descriptor(const std::filesystem::path& path, int flags, mode_t mode)
    : fd_(open(path.c_str(), flags | O_CLOEXEC, mode)) {
    if (fd_ < 0) Fail("open", path);
}

Descriptor::~Descriptor() { close(fd_); }

void WriteNew(const std::filesystem::path& file, const std::string& content, mode_t mode) {
    const Descriptor target(file, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
    // The umask has only taken rights away so far.
    if (fchmod(target.get(), mode) != 0) Fail("set the mode of", file);
    WriteAll(target, content, file);
    if (fsync(target.get()) != 0) Fail("write", file);
}

void Replace(const std::filesystem::path& file, const std::string& content, mode_t mode) {
    const std::filesystem::path fresh = file.parent_path() / (".new-" + str::hex::Encode(str::Random(8)));
    try {
        WriteNew(fresh, content, mode);
        if (rename(fresh.c_str(), file.c_str()) != 0) Fail("write", file);
    } catch (const Error&) {
        unlink(fresh.c_str());
        throw;
    }
    SyncFolder(file.parent_path());
}

void SyncFolder(const std::filesystem::path& folder) {
    const Descriptor opened(folder, O_RDONLY | O_DIRECTORY);
    if (fsync(opened.get()) != 0) Fail("write", folder);
}

}  // namespace zelvek::durable
