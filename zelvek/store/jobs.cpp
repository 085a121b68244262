#include "zelvek/store/jobs.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/VariadicBind.h>

#include "zelvek/base/error.h"
#include "zelvek/base/log.h"

namespace zelvek::jobs {

namespace {

Job Read(const SQLite::Statement& row) {
    Job job;
    job.id = row.getColumn("id").getInt();
    job.certname = row.getColumn("certname").getString();
    job.domain = row.getColumn("domain").getString();
    job.user_name = row.getColumn("user_name").getString();
    job.aliases = row.getColumn("aliases").getString();
    job.check_type = row.getColumn("check_type").getString();
    job.res_name = row.getColumn("res_name").getString();
    job.csr_internal_request = row.getColumn("csr_internal_request").getString();
    job.time_started = row.getColumn("time_started").getString();
    job.next_attempt = row.getColumn("next_attempt").getString();
    job.kid = row.getColumn("kid").getString();
    job.acmekey = row.getColumn("acmekey").getString();
    job.modulus = row.getColumn("modulus").getString();
    job.finalize = row.getColumn("finalize").getString();
    job.finalize_check = row.getColumn("finalize_check").getString();
    job.challenges = row.getColumn("challenges").getString();
    job.attempt_count = row.getColumn("attempt_count").getInt();
    job.account_check_count = row.getColumn("account_check_count").getInt();
    job.max_account_check_attempts = row.getColumn("max_account_check_attempts").getInt();
    job.verified = row.getColumn("verified").getInt() != 0;
    job.failed = row.getColumn("failed").getInt() != 0;
    job.force_update = row.getColumn("force_update").getInt() != 0;
    job.skip_account_check = row.getColumn("skip_account_check").getInt() != 0;
    job.processing = row.getColumn("processing").getInt() != 0;
    job.last_run = row.getColumn("last_run").getString();
    job.reader = {row.getColumn("reader_pid").getInt(), row.getColumn("reader_start").getInt64()};
    return job;
}

}  // namespace

int Add(SQLite::Database& database, const Job& job) {
    SQLite::Statement insert(
        database,
        "INSERT INTO job (certname, domain, user_name, aliases, check_type, res_name,"
        " csr_internal_request, time_started, skip_account_check, max_account_check_attempts)"
        " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    SQLite::bind(insert, job.certname, job.domain, job.user_name, job.aliases, job.check_type, job.res_name,
                 job.csr_internal_request, job.time_started, static_cast<int>(job.skip_account_check),
                 job.max_account_check_attempts);
    insert.exec();
    return static_cast<int>(database.getLastInsertRowid());
}

Job Find(SQLite::Database& database, int id) {
    SQLite::Statement select(database, "SELECT * FROM job WHERE id = ?");
    select.bind(1, id);
    if (!select.executeStep()) {
        throw Error(Code::kMissed, "ambrin.data", std::to_string(id),
                    "there is no job " + std::to_string(id));
    }
    return Read(select);
}

std::vector<Job> All(SQLite::Database& database) {
    std::vector<Job> all;
    SQLite::Statement select(database, "SELECT * FROM job ORDER BY id");
    while (select.executeStep()) all.push_back(Read(select));
    return all;
}

void Save(SQLite::Database& database, const Job& job) {
    SQLite::Statement update(
        database,
        "UPDATE job SET next_attempt = ?, kid = ?, acmekey = ?, modulus = ?, finalize = ?,"
        " finalize_check = ?, challenges = ?, attempt_count = ?, account_check_count = ?,"
        " verified = ?, failed = ?, force_update = ?, processing = ?, last_run = ? WHERE id = ?");
    SQLite::bind(update, job.next_attempt, job.kid, job.acmekey, job.modulus, job.finalize,
                 job.finalize_check, job.challenges, job.attempt_count, job.account_check_count,
                 static_cast<int>(job.verified), static_cast<int>(job.failed),
                 static_cast<int>(job.force_update), static_cast<int>(job.processing), job.last_run, job.id);
    update.exec();
}

void Claim(SQLite::Database& database, int id, const Process& process) {
    SQLite::Statement update(database,
                             "UPDATE job SET processing = 1, reader_pid = ?, reader_start = ? WHERE id = ?");
    SQLite::bind(update, process.pid, static_cast<int64_t>(process.start), id);
    update.exec();
}

void SetReader(SQLite::Database& database, int id, const Process& process) {
    Claim(database, id, process);
    SQLite::Statement insert(database, "INSERT OR REPLACE INTO reader (pid, start, job) VALUES (?, ?, ?)");
    SQLite::bind(insert, process.pid, static_cast<int64_t>(process.start), id);
    insert.exec();
}

int LastRead(SQLite::Database& database, const Process& process) {
    SQLite::Statement select(database, "SELECT job FROM reader WHERE pid = ? AND start = ?");
    SQLite::bind(select, process.pid, static_cast<int64_t>(process.start));
    return select.executeStep() ? select.getColumn(0).getInt() : 0;
}

void EndDeadRuns(SQLite::Database& database, const std::string& now) {
    for (Job& job : All(database)) {
        if (!job.processing || Alive(job.reader)) continue;
        Log("job " + std::to_string(job.id) + ": its run has ended without writing the job back");
        job.processing = false;
        job.last_run = now;
        Save(database, job);
    }
}

void ForgetDeadReaders(SQLite::Database& database) {
    std::vector<Process> dead;
    SQLite::Statement select(database, "SELECT pid, start FROM reader");
    while (select.executeStep()) {
        const Process reader{select.getColumn(0).getInt(), select.getColumn(1).getInt64()};
        if (!Alive(reader)) dead.push_back(reader);
    }
    for (const Process& reader : dead) {
        SQLite::Statement remove(database, "DELETE FROM reader WHERE pid = ? AND start = ?");
        SQLite::bind(remove, reader.pid, static_cast<int64_t>(reader.start));
        remove.exec();
    }
}

void Remove(SQLite::Database& database, int id) {
    SQLite::Statement remove(database, "DELETE FROM job WHERE id = ?");
    remove.bind(1, id);
    remove.exec();
}

void AddEvent(SQLite::Database& database, int id, const Event& event) {
    SQLite::Statement insert(
        database, "INSERT INTO job_event (job, time, state, event, detail) VALUES (?, ?, ?, ?, ?)");
    SQLite::bind(insert, id, event.time, event.state, event.event, event.detail);
    insert.exec();
}

std::vector<Event> Events(SQLite::Database& database, int id) {
    std::vector<Event> events;
    SQLite::Statement select(database,
                             "SELECT time, state, event, detail FROM job_event WHERE job = ? ORDER BY id");
    select.bind(1, id);
    while (select.executeStep()) {
        events.push_back({select.getColumn(0).getString(), select.getColumn(1).getString(),
                          select.getColumn(2).getString(), select.getColumn(3).getString()});
    }
    return events;
}

}  // namespace zelvek::jobs
