#pragma once

#include <filesystem>
#include <memory>
#include <mutex>

namespace SQLite {
class Database;
}

namespace zelvek {

/// The service's one database file. It holds private keys: mode 0600.
class Store {
public:
    /// Opens or creates the file and brings it to the newest version.
    /// Errors: Error that names the file; a file of a newer version than this program's is one.
    explicit Store(const std::filesystem::path& file);
    ~Store();

private:
    friend class Transaction;
    std::mutex mutex_;
    std::unique_ptr<SQLite::Database> database_;
};

/// Everything that one piece of work reads and writes, seen by others as a whole or not at all. Others wait
/// meanwhile, so nothing slow is done inside. Rolled back unless committed.
class Transaction {
public:
    explicit Transaction(Store& store);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    SQLite::Database& database() { return *store_.database_; }
    void Commit();

private:
    Store& store_;
    std::lock_guard<std::mutex> lock_;
    bool open_ = true;
};

}  // namespace zelvek
