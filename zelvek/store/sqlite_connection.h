#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "zelvek/store/connection.h"
#include "zelvek/store/database_file.h"

namespace zelvek {

/// The connection to an SQLite database file, which this process has for itself meanwhile.
class SqliteConnection final : public Connection {
public:
    /// Opens or creates the file. Errors: those of `DatabaseFile`, and of the engine.
    explicit SqliteConnection(const std::filesystem::path& file);
    ~SqliteConnection() override;

    void Execute(const std::vector<std::string>& statements) override;
    void Begin() override;
    void Commit() override;
    void Rollback() override;
    void BeginReading() override;
    bool HasChanged() const override;
    bool EmptyLog() override;
    long long Version() override;
    void SetVersion(long long version) override;
    std::vector<std::string> Columns(const std::string& table) override;
    long long LastNumber(const std::string& table, const std::string& column) override;
    void SetLastNumber(const std::string& table, const std::string& column, long long number) override;
    std::unique_ptr<StatementUse> Use(const std::string& sql) override;
    std::vector<std::string> Prepared() const override;

    struct State;

private:
    void CheckIsOurs();
    DatabaseFile file_;  // outlives what the engine has opened
    std::unique_ptr<State> state_;
};

}  // namespace zelvek
