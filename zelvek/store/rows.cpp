#include "zelvek/store/rows.h"

#include <algorithm>
#include <functional>

#include "vek/str.h"
#include "zelvek/store/statement.h"

namespace zelvek::rows {

namespace {

/// The names with a table's name and a point before each, or another text, joined by commas.
std::string Joined(const std::vector<std::string>& names, const std::string& before,
                   const std::string& after = "") {
    std::string joined;
    for (const std::string& name : names) {
        std::string word = before;
        word.append(name).append(after);
        str::inpl::Append(joined, word, ", ");
    }
    return joined;
}

/// As texts, which is what both engines make of whatever a column holds.
std::string AsTexts(const Table& table, const std::vector<std::string>& columns) {
    return Joined(columns, "CAST (" + table.name + ".", " AS TEXT)");
}

// The keys with their table's name: the texts that are selected have the same names.
std::string Order(const Table& table, const std::string& direction) {
    return " ORDER BY " + Joined(table.keys, table.name + ".", direction) + " LIMIT :most";
}

}  // namespace

const std::vector<Table>& Tables() {
    static const std::vector<Table> tables{
        {"setting", {"name"}},
        {"account", {"id"}, "id"},
        {"job", {"id"}, "id"},
        {"job_event", {"id"}, "id"},
        {"job_name", {"labels", "job"}},
        {"problem", {"number"}, "number"},
        {"problem_parameter", {"problem", "name"}},
        {"delivery", {"id"}, "id"},
        {"recipient", {"name"}},
        {"domain", {"id"}, "id"},
        {"reader", {"pid"}},
        {"csr", {"name", "pid"}},
        {"publication", {"id"}, "id"},
        {"reload", {"user_name", "certname"}},
        {"answered_query", {"identity"}},
        {"authority_use", {"id"}, "id"},
        {"served", {"user_name", "folder"}},
        {"site_check", {"user_name", "folder"}},
        {"examination", {"job"}},
        {"finding", {"job", "number"}},
        {"run_count", {"outcome", "reason"}},
        {"run_duration", {"bound"}},
        {"run_day", {"day", "outcome"}},
        {"page_session", {"number"}, "number"},
        {"page_deed", {"number"}, "number"},
        {"job_count", {"state"}, "", true},
        {"authority_count", {"authority"}, "", true},
        {"problem_count", {"state"}, "", true},
        {"end_count", {"day"}, "", true},
    };
    return tables;
}

std::vector<Row> Page(Connection& connection, const Table& table, const std::vector<std::string>& columns,
                      const Row& after, int limit) {
    const std::string from = after.empty() ? ""
                                           : " WHERE (" + Joined(table.keys, table.name + ".") + ") > (" +
                                                 Joined(table.keys, ":") + ")";
    Statement select(connection,
                     "SELECT " + AsTexts(table, columns) + " FROM " + table.name + from + Order(table, ""));
    for (const auto& value : after) select.WithOptional(value);
    select.With(limit);
    Row row(columns.size());
    for (auto& value : row) select.IntoOptional(value);
    std::vector<Row> page;
    while (select.Next()) page.push_back(row);
    return page;
}

void Put(Connection& connection, const Table& table, const std::vector<std::string>& columns,
         const std::vector<Row>& rows) {
    const std::string text =
        "INSERT INTO " + table.name + " (" + Joined(columns, "") + ") VALUES (" + Joined(columns, ":") + ")";
    for (const Row& row : rows) {
        Statement insert(connection, text);
        for (const auto& value : row) insert.WithOptional(value);
        insert.Run();
    }
}

Row LastKey(Connection& connection, const Table& table) {
    Statement select(connection,
                     "SELECT " + AsTexts(table, table.keys) + " FROM " + table.name + Order(table, " DESC"));
    select.With(1);
    Row key(table.keys.size());
    for (auto& value : key) select.IntoOptional(value);
    return select.Next() ? key : Row{};
}

long long Count(Connection& connection, const Table& table) {
    long long count = 0;
    Statement(connection, "SELECT count(*) FROM " + table.name).Into(count).Next();
    return count;
}

std::vector<std::string> ColumnsOf(Connection& connection, const Table& table) {
    std::vector<std::string> others = connection.Columns(table.name);
    std::erase_if(others, [&](const std::string& column) {
        return std::find(table.keys.begin(), table.keys.end(), column) != table.keys.end();
    });
    std::sort(others.begin(), others.end());
    std::vector<std::string> columns = table.keys;
    columns.insert(columns.end(), others.begin(), others.end());
    return columns;
}

}  // namespace zelvek::rows
