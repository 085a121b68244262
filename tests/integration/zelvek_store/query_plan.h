#pragma once

#include <SQLiteCpp/Database.h>

#include <string>
#include <vector>

namespace zelvek::testing {

/// How SQLite would carry a statement out, a line for each step.
std::vector<std::string> PlanOf(SQLite::Database& database, const std::string& statement);

/// What is wrong with the plan of a statement: it reads or sorts more than what is looked for.
std::vector<std::string> FindingsOf(const std::vector<std::string>& plan, const std::string& statement);

}  // namespace zelvek::testing
