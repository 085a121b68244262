#include "zelvek/store/database_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

#include "zelvek/base/error.h"
#include "zelvek/base/file_lock.h"

namespace zelvek {

namespace {

// The first page begins with a header of 100 bytes, and the description of the first table's page (SQLite's
// "Database File Format", sections 1.3 and 1.6).
constexpr std::string_view kMagic{"SQLite format 3\0", 16};
constexpr std::size_t kVersionAt = 60;  // four bytes, `PRAGMA user_version`
constexpr std::size_t kTablesAt = 103;  // two bytes, 0 where there is no table
constexpr std::size_t kBeginning = 105;

Error Failure(const std::string& deed, int number) {
    return Error(Code::kIo, deed + ": " + std::generic_category().message(number));
}

Descriptor OpenFile(const std::filesystem::path& file) {
    Descriptor opened(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!opened) throw Failure("it cannot be opened", errno);
    return opened;
}

void CheckOwner(int file) {
    struct stat status {};
    if (::fstat(file, &status) != 0) throw Failure("it cannot be looked at", errno);
    if (!S_ISREG(status.st_mode)) throw Error(Code::kIo, "it is no file");
    if (status.st_uid != ::geteuid()) {
        throw Error(Code::kIo, "it belongs to another user, number " + std::to_string(status.st_uid) +
                                   "; the service runs as number " + std::to_string(::geteuid()));
    }
}

void Lock(int file) {
    constexpr std::chrono::milliseconds kPause{20};
    const auto end = std::chrono::steady_clock::now() + FileLock::kAfterlife;
    while (::flock(file, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) throw Failure("it cannot be locked", errno);
        if (std::chrono::steady_clock::now() >= end)
            throw Error(Code::kBusy, "it is in use by another service");
        std::this_thread::sleep_for(kPause);
    }
}

/// A new file is empty. A database of ours has a version as soon as it has tables: both come in one
/// transaction.
void CheckContent(int file) {
    std::array<char, kBeginning> bytes{};
    const ssize_t size = ::pread(file, bytes.data(), bytes.size(), 0);
    if (size < 0) throw Failure("it cannot be read", errno);
    if (size == 0) return;
    const std::string beginning(bytes.data(), bytes.size());
    if (!beginning.starts_with(kMagic)) throw Error(Code::kIo, "it is no database");
    if (beginning.substr(kVersionAt, 4) == std::string(4, '\0') &&
        beginning.substr(kTablesAt, 2) != std::string(2, '\0')) {
        throw Error(Code::kIo, "it is another program's database");
    }
}

}  // namespace

DatabaseFile::DatabaseFile(const std::filesystem::path& file) : path_(file), opened_(OpenFile(file)) {
    CheckOwner(opened_.get());
    Lock(opened_.get());
    CheckContent(opened_.get());
}

void DatabaseFile::MakePrivate() const {
    if (::fchmod(opened_.get(), 0600) != 0) throw Failure("its mode cannot be set", errno);
    // The engine's journals take over the mode; these are there when the engine has looked into the file.
    for (const char* journal : {"-wal", "-shm"}) {
        if (::chmod((path_.string() + journal).c_str(), 0600) != 0 && errno != ENOENT)
            throw Failure("its journal's mode cannot be set", errno);
    }
}

void DatabaseFile::CheckIsThere() const {
    struct stat status {};
    if (::fstat(opened_.get(), &status) == 0 && status.st_nlink > 0) return;
    throw Error(Code::kIo, "the database has been removed while it was in use");
}

DatabaseFile::~DatabaseFile() { ::flock(opened_.get(), LOCK_UN); }

}  // namespace zelvek
