#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zelvek/base/process.h"

namespace SQLite {
class Database;
}

/// What the panel keeps besides jobs. Every function works inside the caller's transaction.
namespace zelvek {

namespace domains {

struct Domain {
    int id = 0;
    std::string name;   // as it was added
    std::string ascii;  // canonical
    std::string user_name;
};

/// Errors: Error of code kExists: a domain belongs to one user.
void Add(SQLite::Database& database, const Domain& domain);

/// One user's domains, or everybody's for an empty name.
std::vector<Domain> Of(SQLite::Database& database, const std::string& user);

}  // namespace domains

namespace problems {

struct Problem {
    std::string id, name, level, owner, time;
    std::vector<std::pair<std::string, std::string>> parameters;
};

/// A repeated id changes nothing: the notification is there already.
void Add(SQLite::Database& database, const Problem& problem);

std::vector<Problem> All(SQLite::Database& database);

}  // namespace problems

/// The panel-wide account that jobs without a working one of their own take.
namespace account {

struct Account {
    std::string kid;
    std::string key;  // PEM
};

Account Default(SQLite::Database& database);
void SetDefault(SQLite::Database& database, const Account& account);

}  // namespace account

/// Requests and their keys between making and taking, by the name of the certificate (ASCII form) and the
/// process that made them: two runs for certificates of one name never get each other's key.
namespace csrs {

struct Stored {
    std::string request, key;
};

void Put(SQLite::Database& database, const std::string& name, const Process& maker, const Stored& csr,
         const std::string& time);

/// The process's own one, else the newest of that name.
std::optional<Stored> Find(SQLite::Database& database, const std::string& name, const Process& asker);

/// The process's own one, and those of the dead.
void Remove(SQLite::Database& database, const std::string& name, const Process& asker);

/// Those of dead processes made before `time`.
void RemoveLeft(SQLite::Database& database, const std::string& time);

}  // namespace csrs

}  // namespace zelvek
