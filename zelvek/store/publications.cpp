#include "zelvek/store/publications.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/VariadicBind.h>

#include <algorithm>

namespace zelvek::publications {

namespace {

std::vector<Publication> Read(SQLite::Statement& select) {
    std::vector<Publication> found;
    while (select.executeStep()) {
        Publication entry;
        entry.id = select.getColumn("id").getInt64();
        entry.thing = {select.getColumn("zone").getString(), select.getColumn("name").getString(),
                       select.getColumn("value").getString()};
        entry.user_name = select.getColumn("user_name").getString();
        entry.job = select.getColumn("job").getInt();
        entry.publisher = {select.getColumn("pid").getInt(), select.getColumn("start").getInt64()};
        entry.kept = select.getColumn("kept").getInt() != 0;
        entry.unwanted = select.getColumn("unwanted").getInt() != 0;
        found.push_back(std::move(entry));
    }
    return found;
}

void Mark(SQLite::Database& database, const std::string& change, int job) {
    SQLite::Statement update(database, "UPDATE publication SET " + change + " WHERE job = ?");
    update.bind(1, job);
    update.exec();
}

}  // namespace

std::optional<Publication> Put(SQLite::Database& database, const Publication& publication) {
    const auto entries = Of(database, publication.thing);
    const auto before = std::find_if(entries.begin(), entries.end(),
                                     [&](const Publication& entry) { return entry.job == publication.job; });
    Publication entry = publication;
    // What an earlier run of the job was written back with stays the job's, whatever becomes of this run.
    entry.kept = before != entries.end() && before->kept && !before->unwanted;
    Restore(database, entry);
    return before == entries.end() ? std::nullopt : std::optional(*before);
}

void Restore(SQLite::Database& database, const Publication& publication) {
    SQLite::Statement insert(database,
                             "INSERT OR REPLACE INTO publication"
                             " (zone, name, value, user_name, job, pid, start, kept, unwanted)"
                             " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    SQLite::bind(insert, publication.thing.zone, publication.thing.name, publication.thing.value,
                 publication.user_name, publication.job, publication.publisher.pid,
                 static_cast<int64_t>(publication.publisher.start), static_cast<int>(publication.kept),
                 static_cast<int>(publication.unwanted));
    insert.exec();
}

void Drop(SQLite::Database& database, const Thing& thing, int job) {
    SQLite::Statement remove(database,
                             "DELETE FROM publication WHERE zone = ? AND name = ? AND value = ? AND job = ?");
    SQLite::bind(remove, thing.zone, thing.name, thing.value, job);
    remove.exec();
}

std::vector<Publication> All(SQLite::Database& database) {
    SQLite::Statement select(database, "SELECT * FROM publication ORDER BY id");
    return Read(select);
}

std::vector<Publication> Of(SQLite::Database& database, const Thing& thing) {
    SQLite::Statement select(database, "SELECT * FROM publication WHERE zone = ? AND name = ? AND value = ?");
    SQLite::bind(select, thing.zone, thing.name, thing.value);
    return Read(select);
}

std::vector<Publication> RecordsOf(SQLite::Database& database, const std::string& user,
                                   const std::string& name, const std::string& value) {
    SQLite::Statement select(database,
                             "SELECT * FROM publication"
                             " WHERE zone <> '' AND user_name = ? AND name = ? AND value = ?");
    SQLite::bind(select, user, name, value);
    return Read(select);
}

void SetUnwanted(SQLite::Database& database, int job) { Mark(database, "unwanted = 1", job); }

void SetKept(SQLite::Database& database, int job) { Mark(database, "kept = 1", job); }

void SetUnwantedOfDead(SQLite::Database& database) {
    for (Publication& entry : All(database)) {
        if (entry.unwanted || entry.kept || Alive(entry.publisher)) continue;
        entry.unwanted = true;
        Restore(database, entry);
    }
}

}  // namespace zelvek::publications
