#include "zelvek/store/store.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <variant>

#include "vek/str.h"
#include "zelvek/base/error.h"
#include "zelvek/base/job.h"
#include "zelvek/base/log.h"
#include "zelvek/store/connection.h"
#include "zelvek/store/engines.h"
#include "zelvek/store/job_names.h"
#include "zelvek/store/jobs.h"
#include "zelvek/store/migrations.h"

namespace zelvek {

namespace {

void RollBack(Connection& connection) {
    try {
        connection.Rollback();
    } catch (const std::exception& error) {
        // The engine has rolled back by itself where the disk failed.
        Log(std::string("rolling back: ") + error.what());
    }
}

/// The statements of a migration: each ends with ";" at the end of a line. Errors: Error of code kInternal
/// for one that does not end.
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
    if (!str::Trim(statement).empty())
        throw Error(Code::kInternal, "a migration's statement has no end: " + statement);
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

/// A transaction, which is rolled back unless it is committed.
class Undoing {
public:
    explicit Undoing(Connection& connection) : connection_(connection) { connection_.Begin(); }
    ~Undoing() {
        if (!committed_) RollBack(connection_);
    }
    Undoing(const Undoing&) = delete;
    Undoing& operator=(const Undoing&) = delete;

    void Commit() {
        connection_.Commit();
        committed_ = true;
    }

private:
    Connection& connection_;
    bool committed_ = false;
};

/// How many migrations the database has had.
std::size_t CheckedVersion(Connection& connection) {
    const auto version = static_cast<std::size_t>(connection.Version());
    if (version <= Migrations().size()) return version;
    throw Error(Code::kIo, "its version " + std::to_string(version) + " is newer than this program's, " +
                               std::to_string(Migrations().size()));
}

void Migrate(Connection& connection) {
    const auto& migrations = Migrations();
    for (std::size_t next = CheckedVersion(connection); next < migrations.size();) {
        Undoing transaction(connection);
        // Another program may have come first: nobody changes the version from here on.
        next = CheckedVersion(connection);
        if (next >= migrations.size()) return;
        connection.Execute(NeededColumns(connection, next));
        connection.Execute(Statements(migrations[next]));
        connection.SetVersion(static_cast<long long>(++next));
        transaction.Commit();
    }
}

/// A new field of a job needs no migration of its own.
void AddMissingColumns(Connection& connection) {
    const auto any = [](const JobField&) { return true; };
    if (MissingColumns(connection, any).empty()) return;
    Undoing transaction(connection);
    connection.Execute(MissingColumns(connection, any));
    transaction.Commit();
}

}  // namespace

Store::Store(const Place& place, Sharing sharing) try : connection_(Open(place, sharing)) {
    Migrate(*connection_);
    AddMissingColumns(*connection_);
    Transaction transaction(*this);
    jobs::NameFolders(transaction);
    job_names::FillIn(transaction);
    transaction.Commit();
} catch (const Error& error) {
    throw Error(error.code(), "database " + place.Shown() + ": " + error.what());
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
    if (untidy_) untidy_ = !connection_->EmptyLog();
}

void Store::TellOfDue(std::function<void(const std::string& due)> listener) {
    const std::lock_guard lock(mutex_);
    due_listener_ = std::move(listener);
}

void Store::TellOfChange(std::function<void()> listener) {
    const std::lock_guard lock(mutex_);
    change_listener_ = std::move(listener);
}

Transaction::Transaction(Store& store) : store_(store), lock_(store.mutex_) { store_.connection_->Begin(); }

Transaction::~Transaction() {
    if (open_) RollBack(*store_.connection_);
}

std::vector<std::string> Transaction::Prepared() const { return store_.connection_->Prepared(); }

void Transaction::Commit() {
    const bool changed = store_.connection_->HasChanged();
    store_.connection_->Commit();
    open_ = false;
    if (!due_.empty() && store_.due_listener_) store_.due_listener_(due_);
    if (changed && store_.change_listener_) store_.change_listener_();
}

void Transaction::NoteDue(const std::string& time) {
    if (!time.empty() && (due_.empty() || time < due_)) due_ = time;
}

}  // namespace zelvek
