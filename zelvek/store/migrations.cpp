#include "zelvek/store/migrations.h"

namespace zelvek {

namespace {

// Job ids are never used again (AUTOINCREMENT): a late plug-in of a removed job must not find another one.
constexpr const char* kPanelRecords = R"sql(
CREATE TABLE job (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    certname TEXT NOT NULL,
    domain TEXT NOT NULL,
    user_name TEXT NOT NULL,
    aliases TEXT NOT NULL,
    check_type TEXT NOT NULL,
    res_name TEXT NOT NULL DEFAULT '',
    csr_internal_request TEXT NOT NULL DEFAULT '',
    time_started TEXT NOT NULL,
    next_attempt TEXT NOT NULL DEFAULT '',
    kid TEXT NOT NULL DEFAULT '',
    acmekey TEXT NOT NULL DEFAULT '',
    modulus TEXT NOT NULL DEFAULT '',
    finalize TEXT NOT NULL DEFAULT '',
    finalize_check TEXT NOT NULL DEFAULT '',
    challenges TEXT NOT NULL DEFAULT '',
    attempt_count INTEGER NOT NULL DEFAULT 0,
    account_check_count INTEGER NOT NULL DEFAULT 0,
    max_account_check_attempts INTEGER NOT NULL DEFAULT 3,
    verified INTEGER NOT NULL DEFAULT 0,
    failed INTEGER NOT NULL DEFAULT 0,
    force_update INTEGER NOT NULL DEFAULT 0,
    skip_account_check INTEGER NOT NULL DEFAULT 0,
    processing INTEGER NOT NULL DEFAULT 0,
    last_run TEXT NOT NULL DEFAULT ''
) STRICT;
CREATE TABLE job_event (
    id INTEGER PRIMARY KEY,
    job INTEGER NOT NULL REFERENCES job (id) ON DELETE CASCADE,
    time TEXT NOT NULL,
    state TEXT NOT NULL,
    event TEXT NOT NULL,
    detail TEXT NOT NULL
) STRICT;
CREATE INDEX job_event_by_job ON job_event (job);
CREATE TABLE problem (
    number INTEGER PRIMARY KEY,
    id TEXT NOT NULL UNIQUE,
    name TEXT NOT NULL,
    level TEXT NOT NULL,
    owner TEXT NOT NULL,
    time TEXT NOT NULL
) STRICT;
CREATE TABLE problem_parameter (
    problem INTEGER NOT NULL REFERENCES problem (number) ON DELETE CASCADE,
    name TEXT NOT NULL,
    value TEXT NOT NULL,
    PRIMARY KEY (problem, name)
) STRICT;
CREATE TABLE domain (
    id INTEGER PRIMARY KEY,
    name TEXT NOT NULL,
    ascii TEXT NOT NULL UNIQUE,
    user_name TEXT NOT NULL
) STRICT;
CREATE TABLE setting (
    name TEXT PRIMARY KEY,
    value TEXT NOT NULL
) STRICT;
)sql";

// Which process a job was read by, and what processes left outside that must not outlive them.
constexpr const char* kProcesses = R"sql(
ALTER TABLE job ADD COLUMN reader_pid INTEGER NOT NULL DEFAULT 0;
ALTER TABLE job ADD COLUMN reader_start INTEGER NOT NULL DEFAULT 0;
CREATE TABLE reader (
    pid INTEGER PRIMARY KEY,
    start INTEGER NOT NULL,
    job INTEGER NOT NULL
) STRICT;
CREATE TABLE csr (
    name TEXT NOT NULL,
    pid INTEGER NOT NULL,
    start INTEGER NOT NULL,
    time TEXT NOT NULL,
    request TEXT NOT NULL,
    key TEXT NOT NULL,
    PRIMARY KEY (name, pid)
) STRICT;
CREATE TABLE publication (
    id INTEGER PRIMARY KEY,
    zone TEXT NOT NULL,
    name TEXT NOT NULL,
    value TEXT NOT NULL,
    user_name TEXT NOT NULL,
    job INTEGER NOT NULL,
    pid INTEGER NOT NULL,
    start INTEGER NOT NULL,
    kept INTEGER NOT NULL,
    unwanted INTEGER NOT NULL,
    UNIQUE (zone, name, value, job)
) STRICT;
)sql";

}  // namespace

const std::vector<const char*>& Migrations() {
    static const std::vector<const char*> migrations{kPanelRecords, kProcesses};
    return migrations;
}

}  // namespace zelvek
