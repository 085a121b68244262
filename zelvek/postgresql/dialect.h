#pragma once

#include <string>
#include <vector>

/// The store's SQL as PostgreSQL wants it. Statements that work with rows are the same on both engines, but
/// for the names of their values; what makes tables is written as SQLite has it.
namespace zelvek::postgresql {

/// The statement with "$1", "$2" and so on for each ":name", in the order in which they stand.
std::string Numbered(const std::string& sql);

/// A statement of a migration: what makes or changes a table, an index or a trigger, or a statement with the
/// functions that older migrations use.
std::vector<std::string> Translated(const std::string& statement);

}  // namespace zelvek::postgresql
