#pragma once

#include <memory>
#include <string>
#include <vector>

#include "zelvek/postgresql/session.h"
#include "zelvek/store/connection.h"

namespace zelvek::postgresql {

/// A store's database that a PostgreSQL server has.
class PostgresqlConnection : public Connection {
public:
    PostgresqlConnection(const std::string& url, Sharing sharing) : session_(url, sharing) {}

    void Execute(const std::vector<std::string>& statements) override;
    void Begin() override;
    void Commit() override;
    void Rollback() override;
    void BeginReading() override;
    bool HasChanged() const override { return changed_; }
    bool EmptyLog() override { return true; }  // what the server's log holds is the server's
    long long Version() override;
    void SetVersion(long long version) override;
    std::vector<std::string> Columns(const std::string& table) override;
    long long LastNumber(const std::string& table, const std::string& column) override;
    void SetLastNumber(const std::string& table, const std::string& column, long long number) override;
    std::unique_ptr<StatementUse> Use(const std::string& sql) override;
    std::vector<std::string> Prepared() const override { return session_.Prepared(); }

private:
    Session session_;
    bool changed_ = false;  // since the transaction's beginning
};

}  // namespace zelvek::postgresql
