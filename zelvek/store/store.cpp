#include "zelvek/store/store.h"

#include <exception>
#include <sstream>
#include <string>

#include "zelvek/base/error.h"
#include "zelvek/base/log.h"
#include "zelvek/store/migrations.h"

namespace zelvek {

namespace {

/// The statements of a migration: each ends with ";" at the end of a line.
std::vector<std::string> Statements(const std::string& migration) {
    std::vector<std::string> statements;
    std::string statement;
    std::istringstream lines(migration);
    for (std::string line; std::getline(lines, line);) {
        statement += line + "\n";
        if (!line.ends_with(';')) continue;
        statements.push_back(statement);
        statement.clear();
    }
    return statements;
}

void Migrate(Connection& connection) {
    const auto& migrations = Migrations();
    const auto version = static_cast<std::size_t>(connection.Version());
    if (version > migrations.size()) {
        throw Error(Code::kIo, "its version " + std::to_string(version) + " is newer than this program's, " +
                                   std::to_string(migrations.size()));
    }
    for (std::size_t next = version; next < migrations.size(); ++next) {
        connection.Begin();
        connection.Execute(Statements(migrations[next]));
        connection.SetVersion(static_cast<long long>(next) + 1);
        connection.Commit();
    }
}

}  // namespace

Store::Store(const std::filesystem::path& file) try : connection_(file) {
    Migrate(connection_);
} catch (const Error& error) {
    throw Error(error.code(), "database " + file.string() + ": " + error.what());
}

Transaction::Transaction(Store& store) : store_(store), lock_(store.mutex_) { store_.connection_.Begin(); }

Transaction::~Transaction() {
    if (!open_) return;
    try {
        store_.connection_.Rollback();
    } catch (const std::exception& error) {
        // The engine has rolled back by itself where the disk failed.
        Log(std::string("rolling back: ") + error.what());
    }
}

void Transaction::Commit() {
    store_.connection_.Commit();
    open_ = false;
}

}  // namespace zelvek
