#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zelvek/store/connection.h"

/// Rows of whatever table, as they go from one database to another; all values as texts.
namespace zelvek::rows {

struct Table {
    std::string name;
    std::vector<std::string> keys;  // the columns of its primary key
    std::string number = {};        // the column whose values are counted up; empty for none
    bool counts = false;            // whether it counts other tables' rows, by triggers
};

/// All tables of a store, those first that others refer to, those that count last.
const std::vector<Table>& Tables();

/// What a column holds; nothing for NULL.
using Row = std::vector<std::optional<std::string>>;

/// A page of a table, in the order of its keys: at most `limit` rows after that key, from the first one where
/// it is empty. `columns` begin with the keys.
std::vector<Row> Page(Connection& connection, const Table& table, const std::vector<std::string>& columns,
                      const Row& after, int limit);

void Put(Connection& connection, const Table& table, const std::vector<std::string>& columns,
         const std::vector<Row>& rows);

/// The key of the last row; empty where there is none.
Row LastKey(Connection& connection, const Table& table);

long long Count(Connection& connection, const Table& table);

/// The columns of a table, its keys first, the others by name: engines have them in different orders.
std::vector<std::string> ColumnsOf(Connection& connection, const Table& table);

}  // namespace zelvek::rows
