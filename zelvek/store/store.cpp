#include "zelvek/store/store.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Exception.h>
#include <SQLiteCpp/Statement.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

#include "zelvek/base/error.h"
#include "zelvek/base/log.h"
#include "zelvek/store/migrations.h"

namespace zelvek {

namespace {

// How long a foreign writer, a person with the sqlite3 tool say, may hold the file.
constexpr int kBusyMilliseconds = 10000;

/// Makes the file before SQLite does, which would make it readable by all; its journals take over the mode.
void MakePrivate(const std::filesystem::path& file) {
    const int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const bool failed = fd < 0 || ::fchmod(fd, 0600) != 0;
    const int error = errno;
    if (fd >= 0) ::close(fd);
    if (failed)
        throw Error(Code::kIo, "database " + file.string() + ": " + std::generic_category().message(error));
}

void Migrate(SQLite::Database& database) {
    const auto& migrations = Migrations();
    const auto version = static_cast<std::size_t>(database.execAndGet("PRAGMA user_version").getInt64());
    if (version > migrations.size()) {
        throw Error(Code::kIo, "its version " + std::to_string(version) + " is newer than this program's, " +
                                   std::to_string(migrations.size()));
    }
    for (std::size_t next = version; next < migrations.size(); ++next) {
        database.exec("BEGIN IMMEDIATE");
        database.exec(migrations[next]);
        database.exec("PRAGMA user_version = " + std::to_string(next + 1));
        database.exec("COMMIT");
    }
}

}  // namespace

Store::Store(const std::filesystem::path& file) {
    MakePrivate(file);
    try {
        database_ =
            std::make_unique<SQLite::Database>(file.string(), SQLite::OPEN_READWRITE, kBusyMilliseconds);
        database_->exec("PRAGMA journal_mode = WAL");
        database_->exec("PRAGMA synchronous = FULL");
        database_->exec("PRAGMA foreign_keys = ON");
        database_->exec("PRAGMA secure_delete = ON");  // a deleted key leaves no bytes in the file
        Migrate(*database_);
    } catch (const std::exception& error) {
        throw Error(Code::kIo, "database " + file.string() + ": " + error.what());
    }
}

Store::~Store() = default;

Transaction::Transaction(Store& store) : store_(store), lock_(store.mutex_) {
    store_.database_->exec("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
    if (!open_) return;
    try {
        store_.database_->exec("ROLLBACK");
    } catch (const SQLite::Exception& error) {
        // SQLite has rolled back by itself where the disk failed.
        Log(std::string("rolling back: ") + error.what());
    }
}

void Transaction::Commit() {
    store_.database_->exec("COMMIT");
    open_ = false;
}

}  // namespace zelvek
