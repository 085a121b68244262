#include "zelvek/store/panel.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/VariadicBind.h>

#include "zelvek/base/error.h"

namespace zelvek {

void domains::Add(SQLite::Database& database, const Domain& domain) {
    SQLite::Statement insert(
        database, "INSERT INTO domain (name, ascii, user_name) VALUES (?, ?, ?) ON CONFLICT DO NOTHING");
    SQLite::bind(insert, domain.name, domain.ascii, domain.user_name);
    if (insert.exec() == 0) {
        throw Error(Code::kExists, "domain", domain.name,
                    "the domain \"" + domain.name + "\" is there already");
    }
}

std::vector<domains::Domain> domains::Of(SQLite::Database& database, const std::string& user) {
    std::vector<Domain> found;
    SQLite::Statement select(database,
                             "SELECT id, name, ascii, user_name FROM domain"
                             " WHERE ?1 = '' OR user_name = ?1 ORDER BY id");
    select.bind(1, user);
    while (select.executeStep()) {
        found.push_back({select.getColumn(0).getInt(), select.getColumn(1).getString(),
                         select.getColumn(2).getString(), select.getColumn(3).getString()});
    }
    return found;
}

void problems::Add(SQLite::Database& database, const Problem& problem) {
    SQLite::Statement insert(database,
                             "INSERT INTO problem (id, name, level, owner, time) VALUES (?, ?, ?, ?, ?)"
                             " ON CONFLICT DO NOTHING");
    SQLite::bind(insert, problem.id, problem.name, problem.level, problem.owner, problem.time);
    if (insert.exec() == 0) return;
    const int64_t number = database.getLastInsertRowid();
    for (const auto& [name, value] : problem.parameters) {
        SQLite::Statement parameter(database, "INSERT INTO problem_parameter VALUES (?, ?, ?)");
        SQLite::bind(parameter, number, name, value);
        parameter.exec();
    }
}

std::vector<problems::Problem> problems::All(SQLite::Database& database) {
    std::vector<Problem> all;
    SQLite::Statement select(database,
                             "SELECT number, id, name, level, owner, time FROM problem ORDER BY number");
    while (select.executeStep()) {
        Problem problem{select.getColumn(1).getString(), select.getColumn(2).getString(),
                        select.getColumn(3).getString(), select.getColumn(4).getString(),
                        select.getColumn(5).getString(), {}};
        SQLite::Statement parameters(
            database, "SELECT name, value FROM problem_parameter WHERE problem = ? ORDER BY name");
        parameters.bind(1, select.getColumn(0).getInt64());
        while (parameters.executeStep()) {
            problem.parameters.emplace_back(parameters.getColumn(0).getString(),
                                            parameters.getColumn(1).getString());
        }
        all.push_back(std::move(problem));
    }
    return all;
}

namespace {

std::string Setting(SQLite::Database& database, const std::string& name) {
    SQLite::Statement select(database, "SELECT value FROM setting WHERE name = ?");
    select.bind(1, name);
    return select.executeStep() ? select.getColumn(0).getString() : "";
}

void SetSetting(SQLite::Database& database, const std::string& name, const std::string& value) {
    SQLite::Statement insert(database, "INSERT OR REPLACE INTO setting (name, value) VALUES (?, ?)");
    SQLite::bind(insert, name, value);
    insert.exec();
}

}  // namespace

account::Account account::Default(SQLite::Database& database) {
    return {Setting(database, "default_kid"), Setting(database, "default_pem")};
}

void account::SetDefault(SQLite::Database& database, const Account& account) {
    SetSetting(database, "default_kid", account.kid);
    SetSetting(database, "default_pem", account.key);
}

namespace {

/// The processes that made a request of that name (every name for an empty one) before `time`.
std::vector<std::pair<std::string, Process>> Makers(SQLite::Database& database, const std::string& name,
                                                    const std::string& time) {
    std::vector<std::pair<std::string, Process>> makers;
    SQLite::Statement select(database,
                             "SELECT name, pid, start FROM csr WHERE (?1 = '' OR name = ?1) AND time <= ?2");
    SQLite::bind(select, name, time);
    while (select.executeStep()) {
        makers.emplace_back(select.getColumn(0).getString(),
                            Process{select.getColumn(1).getInt(), select.getColumn(2).getInt64()});
    }
    return makers;
}

void RemoveMade(SQLite::Database& database, const std::string& name, const Process& maker) {
    SQLite::Statement remove(database, "DELETE FROM csr WHERE name = ? AND pid = ? AND start = ?");
    SQLite::bind(remove, name, maker.pid, static_cast<int64_t>(maker.start));
    remove.exec();
}

constexpr const char* kEver = "9999-12-31 23:59:59";

}  // namespace

void csrs::Put(SQLite::Database& database, const std::string& name, const Process& maker, const Stored& csr,
               const std::string& time) {
    Remove(database, name, maker);
    SQLite::Statement insert(database,
                             "INSERT OR REPLACE INTO csr (name, pid, start, time, request, key)"
                             " VALUES (?, ?, ?, ?, ?, ?)");
    SQLite::bind(insert, name, maker.pid, static_cast<int64_t>(maker.start), time, csr.request, csr.key);
    insert.exec();
}

std::optional<csrs::Stored> csrs::Find(SQLite::Database& database, const std::string& name,
                                       const Process& asker) {
    SQLite::Statement select(database,
                             "SELECT request, key FROM csr WHERE name = ?1"
                             " ORDER BY pid = ?2 AND start = ?3 DESC, time DESC, rowid DESC LIMIT 1");
    SQLite::bind(select, name, asker.pid, static_cast<int64_t>(asker.start));
    if (!select.executeStep()) return std::nullopt;
    return Stored{select.getColumn(0).getString(), select.getColumn(1).getString()};
}

void csrs::Remove(SQLite::Database& database, const std::string& name, const Process& asker) {
    for (const auto& [of, maker] : Makers(database, name, kEver)) {
        if (maker == asker || !Alive(maker)) RemoveMade(database, of, maker);
    }
}

void csrs::RemoveLeft(SQLite::Database& database, const std::string& time) {
    for (const auto& [name, maker] : Makers(database, "", time)) {
        if (!Alive(maker)) RemoveMade(database, name, maker);
    }
}

}  // namespace zelvek
