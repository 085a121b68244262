#include "zelvek/store/sqlite_connection.h"

#include <soci/sqlite3/soci-sqlite3.h>

#include "zelvek/base/error.h"
#include "zelvek/store/soci_state.h"
#include "zelvek/store/statement.h"

namespace zelvek {

namespace {

// How long a foreign writer, a person with the sqlite3 tool say, may hold the file.
constexpr const char* kBusySeconds = "10";
constexpr const char* kPatience = "PRAGMA busy_timeout = 10000";  // the same

/// The library reads "key=value" words; quotes keep a path with blanks in one.
std::string ConnectString(const std::filesystem::path& file) {
    if (file.string().find('"') != std::string::npos)
        throw Error(Code::kIo, "the path of a database can hold no quote");
    return "dbname=\"" + file.string() + "\" timeout=" + kBusySeconds;
}

}  // namespace

SqliteConnection::SqliteConnection(const std::filesystem::path& file)
    : file_(std::filesystem::absolute(file)) {
    // Some names of a file, as ":memory:", mean something else to the engine; no path that begins with "/"
    // does.
    state_ =
        Translated([&] { return std::make_unique<State>(ConnectString(std::filesystem::absolute(file))); });
    CheckIsOurs();
    file_.MakePrivate();
    Execute({"PRAGMA journal_mode = WAL", "PRAGMA synchronous = FULL", "PRAGMA foreign_keys = ON",
             "PRAGMA secure_delete = ON"});  // a deleted key leaves no bytes in the file
}

SqliteConnection::~SqliteConnection() = default;

void SqliteConnection::Execute(const std::vector<std::string>& statements) {
    for (const std::string& statement : statements) Translated([&] { state_->session << statement; });
}

/// Another program may count its versions in the same place. Nothing has been changed so far.
void SqliteConnection::CheckIsOurs() {
    int tables = 0;
    Translated([&] {
        state_->session << "SELECT count(*) FROM sqlite_master WHERE name IN ('job', 'domain', 'setting')",
            soci::into(tables);
    });
    if (Version() != 0 && tables != 3) throw Error(Code::kIo, "it is another program's database");
}

void SqliteConnection::Begin() {
    file_.CheckIsThere();
    Statement(*this, "BEGIN IMMEDIATE").Run();
    state_->changed = false;
}

void SqliteConnection::Commit() { Statement(*this, "COMMIT").Run(); }

bool SqliteConnection::HasChanged() const { return state_->changed; }

void SqliteConnection::Rollback() { Statement(*this, "ROLLBACK").Run(); }

void SqliteConnection::BeginReading() { Statement(*this, "BEGIN").Run(); }

bool SqliteConnection::EmptyLog() {
    int busy = 1;
    // Whoever reads the database would be waited for otherwise, and all of the store's users with them.
    Execute({"PRAGMA busy_timeout = 0"});
    try {
        Translated([&] { state_->session << "PRAGMA wal_checkpoint(TRUNCATE)", soci::into(busy); });
    } catch (const Error&) {
        Execute({kPatience});
        throw;
    }
    Execute({kPatience});
    return busy == 0;
}

long long SqliteConnection::Version() {
    long long version = 0;
    Translated([&] { state_->session << "PRAGMA user_version", soci::into(version); });
    return version;
}

void SqliteConnection::SetVersion(long long version) {
    Execute({"PRAGMA user_version = " + std::to_string(version)});
}

std::vector<std::string> SqliteConnection::Columns(const std::string& table) {
    soci::row row;  // described, though none is found
    Translated([&] { state_->session << "SELECT * FROM " << table << " WHERE 1 = 0", soci::into(row); });
    std::vector<std::string> names;
    for (std::size_t i = 0; i < row.size(); ++i) names.push_back(row.get_properties(i).get_name());
    return names;
}

long long SqliteConnection::LastNumber(const std::string& table, const std::string& column) {
    long long number = 0;
    // Of AUTOINCREMENT columns it is remembered, of others the highest one that is there counts.
    Statement(*this, "SELECT coalesce(max(seq), 0) FROM sqlite_sequence WHERE name = :table")
        .With(table)
        .Into(number)
        .Next();
    if (number > 0) return number;
    Statement(*this, "SELECT coalesce(max(" + column + "), 0) FROM " + table).Into(number).Next();
    return number;
}

void SqliteConnection::SetLastNumber(const std::string& table, const std::string& /*column*/,
                                     long long number) {
    // There is a row for a table with such a column as soon as it has had a row.
    if (Statement(*this, "UPDATE sqlite_sequence SET seq = :number WHERE name = :table")
            .With(number)
            .With(table)
            .Run() > 0)
        return;
    Statement(*this,
              "INSERT INTO sqlite_sequence (name, seq) SELECT name, :number FROM sqlite_master"
              " WHERE type = 'table' AND name = :table AND sql LIKE '%AUTOINCREMENT%'")
        .With(number)
        .With(table)
        .Run();
}

std::unique_ptr<StatementUse> SqliteConnection::Use(const std::string& sql) {
    return Translated([&] { return UseOf(*state_, sql); });
}

std::vector<std::string> SqliteConnection::Prepared() const {
    std::vector<std::string> texts;
    for (const auto& [text, statement] : state_->kept) texts.push_back(text);
    return texts;
}

}  // namespace zelvek
