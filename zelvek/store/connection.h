#pragma once

#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace zelvek {

/// One use of a prepared statement, as an engine does it; `Statement` is what the store's files see of it.
/// What is left when it is destroyed before the last row is the engine's to tidy up.
class StatementUse {
public:
    /// The caller's variable for a column.
    using Column = std::variant<std::string*, long long*, int*, bool*, std::optional<std::string>*>;

    StatementUse() = default;
    virtual ~StatementUse() = default;
    StatementUse(const StatementUse&) = delete;
    StatementUse& operator=(const StatementUse&) = delete;

    /// The value of the next place: UTF-8 without zero bytes, or a number.
    virtual void Give(const std::string& text) = 0;
    virtual void Give(long long number) = 0;
    virtual void GiveNothing() = 0;

    /// Where the next column of each row goes.
    virtual void Receive(Column column) = 0;

    virtual bool Next() = 0;
    virtual long long Run() = 0;
};

/// The connection to an engine, and the statements that it keeps prepared. What differs between engines is
/// behind this; everything else in this folder is SQL that SQLite and PostgreSQL both understand. For one
/// thread at a time. Errors: Error of code kLater for what may pass (somebody else has the database, it is
/// away, there is no room), of code kInternal for all else that the engine says; its sentence holds neither a
/// statement nor a value, which may be a key.
class Connection {
public:
    Connection() = default;
    virtual ~Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Carries out statements that are not kept, one after the other: what both engines understand, and
    /// SQLite's statements that make and change tables, indexes and triggers.
    virtual void Execute(const std::vector<std::string>& statements) = 0;

    /// A transaction that may write. There is one at a time, whoever else uses the database: it waits for the
    /// others, for a few seconds.
    virtual void Begin() = 0;
    virtual void Commit() = 0;
    virtual void Rollback() = 0;

    /// Whether a row was changed since the transaction's beginning.
    virtual bool HasChanged() const = 0;

    /// A transaction that only reads, and sees all as it is at one moment, however long it lasts. Nobody
    /// waits for it.
    virtual void BeginReading() = 0;

    /// Moves all changes from the engine's log into the database and empties the log, where it has such a
    /// log; says whether that was possible at once. Not inside a transaction.
    virtual bool EmptyLog() = 0;

    /// The version of the database's tables; 0 for a new database. `SetVersion` is part of a transaction.
    virtual long long Version() = 0;
    virtual void SetVersion(long long version) = 0;

    /// The names of a table's columns.
    virtual std::vector<std::string> Columns(const std::string& table) = 0;

    /// The highest number that the column, which is counted up, has given to a row so far, where the engine
    /// remembers that; new rows go on after it.
    virtual long long LastNumber(const std::string& table, const std::string& column) = 0;
    virtual void SetLastNumber(const std::string& table, const std::string& column, long long number) = 0;

    virtual std::unique_ptr<StatementUse> Use(const std::string& sql) = 0;

    /// The texts of the statements that are kept prepared.
    virtual std::vector<std::string> Prepared() const = 0;
};

}  // namespace zelvek
