#include "zelvek/postgresql/connection.h"

#include <charconv>

#include "zelvek/postgresql/dialect.h"
#include "zelvek/postgresql/locks.h"

namespace zelvek::postgresql {

namespace {

long long Number(const std::string& text) {
    long long number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

/// One use of a prepared statement. All rows are there when the first one is asked for.
class PostgresqlStatement : public StatementUse {
public:
    /// `changed` is set where it changes a row.
    PostgresqlStatement(Session& session, const std::string& sql, bool& changed)
        : session_(session),
          name_(session.NameOf(sql)),
          reads_(sql.starts_with("SELECT")),
          changed_(changed) {}

    void Give(const std::string& text) override { values_.emplace_back(text); }
    void Give(long long number) override { values_.emplace_back(std::to_string(number)); }
    void GiveNothing() override { values_.emplace_back(); }
    void Receive(Column column) override { columns_.push_back(column); }

    bool Next() override {
        if (!begun_) Begin();
        if (row_ >= result_.Rows()) return false;
        for (std::size_t i = 0; i < columns_.size(); ++i) HandOver(static_cast<int>(i));
        ++row_;
        return true;
    }

    long long Run() override {
        Begin();
        return result_.Changed();
    }

private:
    void Begin() {
        result_ = session_.client().DoPrepared(name_, values_);
        begun_ = true;
        if (!reads_ && result_.Changed() > 0) changed_ = true;
    }

    void HandOver(int column) {
        const bool null = result_.IsNull(row_, column);
        std::visit([&](auto* variable) { HandOver(column, null, *variable); },
                   columns_[static_cast<std::size_t>(column)]);
    }

    void HandOver(int column, bool null, std::optional<std::string>& variable) {
        variable = null ? std::nullopt : std::optional(result_.Text(row_, column));
    }
    void HandOver(int column, bool null, std::string& variable) {
        RefuseNull(null);
        variable = result_.Text(row_, column);
    }
    template <class Variable>
    void HandOver(int column, bool null, Variable& variable) {
        RefuseNull(null);
        variable = static_cast<Variable>(Number(result_.Text(row_, column)));
    }

    static void RefuseNull(bool null) {
        if (null) throw Error(Code::kInternal, "the database has nothing where something is expected");
    }

    Session& session_;
    std::string name_;
    bool reads_;
    bool& changed_;
    Values values_;
    std::vector<Column> columns_;
    Result result_;
    int row_ = 0;
    bool begun_ = false;
};

/// Waits until nobody else is in a transaction. What follows sees all that they have changed.
void BeginAlone(Client& client) {
    try {
        client.Do("BEGIN; SELECT pg_advisory_xact_lock(" + Lock(kTransactionLock) + ")");
    } catch (const Lost&) {
        throw;
    } catch (const Error&) {
        client.Do("ROLLBACK");
        throw;
    }
}

}  // namespace

void PostgresqlConnection::Execute(const std::vector<std::string>& statements) {
    for (const std::string& statement : statements) {
        for (const std::string& part : Translated(statement)) session_.client().Do(part);
    }
}

void PostgresqlConnection::Begin() {
    changed_ = false;
    Client& client = session_.Renewed();
    try {
        BeginAlone(client);
    } catch (const Lost&) {
        // One that was lost while nobody used it is noticed here, where nothing has been done yet.
        BeginAlone(session_.Renewed());
    }
}

void PostgresqlConnection::Commit() {
    Client& client = session_.client();
    const std::string number = client.Ask("SELECT pg_current_xact_id_if_assigned()");
    try {
        const std::string outcome = ::PQcmdStatus(client.Do("COMMIT").held.get());
        if (outcome != "COMMIT") throw Error(Code::kInternal, "a part of the transaction had failed");
    } catch (const Lost&) {
        if (number.empty() || session_.WasCommitted(number)) return;
        throw;
    }
}

void PostgresqlConnection::Rollback() {
    // With the connection goes its transaction.
    if (session_.IsUp() && session_.client().IsInTransaction()) session_.client().Do("ROLLBACK");
}

void PostgresqlConnection::BeginReading() {
    session_.Renewed().Do(
        "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY; SET LOCAL idle_in_transaction_session_timeout = 0");
}

long long PostgresqlConnection::Version() {
    // Not to_regclass(): it may answer of before this transaction had its lock.
    const std::string there = session_.client().Ask(
        "SELECT 1 FROM pg_class c JOIN pg_namespace n ON n.oid = c.relnamespace"
        " WHERE n.nspname = current_schema() AND c.relname = 'zelvek_version'");
    return there.empty() ? 0 : Number(session_.client().Ask("SELECT version FROM zelvek_version"));
}

void PostgresqlConnection::SetVersion(long long version) {
    session_.client().Do(
        "CREATE TABLE IF NOT EXISTS zelvek_version (version BIGINT NOT NULL);"
        "DELETE FROM zelvek_version; INSERT INTO zelvek_version VALUES (" +
        std::to_string(version) + ")");
}

std::vector<std::string> PostgresqlConnection::Columns(const std::string& table) {
    const Result none = session_.client().Do("SELECT * FROM " + table + " LIMIT 0");
    const int count = ::PQnfields(none.held.get());
    std::vector<std::string> names;
    names.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) names.emplace_back(::PQfname(none.held.get(), i));
    return names;
}

long long PostgresqlConnection::LastNumber(const std::string& table, const std::string& column) {
    return Number(
        session_.client().Ask("SELECT coalesce(last_value, 0) FROM pg_sequences WHERE format('%I.%I', "
                              "schemaname, sequencename)::regclass"
                              " = pg_get_serial_sequence($1, $2)::regclass",
                              {table, column}));
}

void PostgresqlConnection::SetLastNumber(const std::string& table, const std::string& column,
                                         long long number) {
    session_.client().Ask(
        "SELECT setval(pg_get_serial_sequence($1, $2)::regclass, greatest($3::bigint, 1), $3::bigint > 0)",
        {table, column, std::to_string(number)});
}

std::unique_ptr<StatementUse> PostgresqlConnection::Use(const std::string& sql) {
    return std::make_unique<PostgresqlStatement>(session_, sql, changed_);
}

}  // namespace zelvek::postgresql
