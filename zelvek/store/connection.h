#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "zelvek/store/database_file.h"

namespace zelvek {

/// The connection to the engine, and the statements that it keeps prepared. What differs between engines is
/// behind this; everything else in this folder is SQL that SQLite and PostgreSQL both understand. For one
/// thread at a time.
class Connection {
public:
    /// Opens or creates an SQLite database file. Errors: those of `DatabaseFile`, and of the engine.
    explicit Connection(const std::filesystem::path& file);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Carries out statements that are not kept, one after the other.
    void Execute(const std::vector<std::string>& statements);

    /// A transaction that may write: it waits for others who write, for a few seconds.
    void Begin();
    void Commit();
    void Rollback();

    /// Whether a row was changed since the transaction's beginning.
    bool HasChanged() const;

    /// Moves all changes from the engine's log into the database and empties the log; says whether that was
    /// possible at once. Not inside a transaction.
    bool EmptyLog();

    /// The version of the database's tables; 0 for a new database. `SetVersion` is part of a transaction.
    long long Version();
    void SetVersion(long long version);

    /// The names of a table's columns.
    std::vector<std::string> Columns(const std::string& table);

    /// The texts of the statements that are kept prepared.
    std::vector<std::string> Prepared() const;

private:
    friend class Statement;
    struct State;
    void CheckIsOurs();
    DatabaseFile file_;  // outlives what the engine has opened
    std::unique_ptr<State> state_;
};

}  // namespace zelvek
