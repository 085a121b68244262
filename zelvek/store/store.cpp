#include "zelvek/store/store.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <variant>

#include "zelvek/base/error.h"
#include "zelvek/base/job.h"
#include "zelvek/base/log.h"
#include "zelvek/store/job_names.h"
#include "zelvek/store/jobs.h"
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

/// The column of a job's field, with what a new job has there.
std::string ColumnText(const JobField& field) {
    const Job fresh;
    if (field.IsText()) {
        const std::string& text = fresh.*std::get<std::string Job::*>(field.member);
        return std::string(field.key) + " TEXT NOT NULL DEFAULT '" + text + "'";
    }
    const int number = field.IsFlag() ? static_cast<int>(fresh.*std::get<bool Job::*>(field.member))
                                      : fresh.*std::get<int Job::*>(field.member);
    return std::string(field.key) + " INTEGER NOT NULL DEFAULT " + std::to_string(number);
}

/// What adds the columns of those fields that the table does not have yet.
std::vector<std::string> MissingColumns(Connection& connection,
                                        const std::function<bool(const JobField&)>& wanted) {
    const std::vector<std::string> columns = connection.Columns("job");
    std::vector<std::string> changes;
    for (const JobField& field : kJobFields) {
        const bool there = std::find(columns.begin(), columns.end(), field.key) != columns.end();
        if (there || field.kept == JobField::Kept::kWithAccount || !wanted(field)) continue;
        changes.push_back("ALTER TABLE job ADD COLUMN " + ColumnText(field));
    }
    return changes;
}

/// Columns that a migration has indexes for, though no migration makes them.
std::vector<std::string> NeededColumns(Connection& connection, std::size_t migration) {
    constexpr std::size_t kIndexesFailures = 17;
    if (migration != kIndexesFailures) return {};
    return MissingColumns(connection,
                          [](const JobField& field) { return field.key == std::string("failures"); });
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
        connection.Execute(NeededColumns(connection, next));
        connection.Execute(Statements(migrations[next]));
        connection.SetVersion(static_cast<long long>(next) + 1);
        connection.Commit();
    }
}

/// A new field of a job needs no migration of its own.
void AddMissingColumns(Connection& connection) {
    const auto changes = MissingColumns(connection, [](const JobField&) { return true; });
    if (changes.empty()) return;
    connection.Begin();
    connection.Execute(changes);
    connection.Commit();
}

}  // namespace

Store::Store(const std::filesystem::path& file) try : connection_(file) {
    Migrate(connection_);
    AddMissingColumns(connection_);
    Transaction transaction(*this);
    jobs::NameFolders(transaction);
    job_names::FillIn(transaction);
    transaction.Commit();
} catch (const Error& error) {
    throw Error(error.code(), "database " + file.string() + ": " + error.what());
}

Store::~Store() {
    try {
        Tidy();
    } catch (const std::exception& error) {
        Log(std::string("tidying up the database: ") + error.what());
    }
}

void Store::Tidy() {
    const std::lock_guard lock(mutex_);
    if (untidy_) untidy_ = !connection_.EmptyLog();
}

void Store::TellOfDue(std::function<void(const std::string& due)> listener) {
    const std::lock_guard lock(mutex_);
    due_listener_ = std::move(listener);
}

void Store::TellOfChange(std::function<void()> listener) {
    const std::lock_guard lock(mutex_);
    change_listener_ = std::move(listener);
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
    const bool changed = store_.connection_.HasChanged();
    store_.connection_.Commit();
    open_ = false;
    if (!due_.empty() && store_.due_listener_) store_.due_listener_(due_);
    if (changed && store_.change_listener_) store_.change_listener_();
}

void Transaction::NoteDue(const std::string& time) {
    if (!time.empty() && (due_.empty() || time < due_)) due_ = time;
}

}  // namespace zelvek
